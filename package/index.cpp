#include "package/index.h"
