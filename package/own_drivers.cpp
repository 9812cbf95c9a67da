#include "package/own_drivers.h"
