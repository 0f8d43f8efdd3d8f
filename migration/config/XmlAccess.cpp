#include "config/XmlAccess.h"
