#include "package/models.h"
