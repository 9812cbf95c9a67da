#include "registry/edits.h"
