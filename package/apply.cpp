#include "package/apply.h"
