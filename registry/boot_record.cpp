#include "registry/boot_record.h"
