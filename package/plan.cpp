#include "package/plan.h"
