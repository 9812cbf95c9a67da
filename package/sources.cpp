#include "package/sources.h"
