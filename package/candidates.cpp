#include "package/candidates.h"
