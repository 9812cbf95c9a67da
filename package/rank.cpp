#include "package/rank.h"
