#include "wire.h"
