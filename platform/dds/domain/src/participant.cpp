#include "qddsdomain/participant.h"
