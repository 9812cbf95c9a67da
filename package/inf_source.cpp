#include "package/inf_source.h"
