#include "zel_error.h"
