#include "package/installation.h"
