#include "support/library_test.h"
