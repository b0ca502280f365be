#include "type_object.h"
