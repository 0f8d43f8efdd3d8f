#include "registry/ValueMigration.h"
