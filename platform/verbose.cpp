// How much the library tells; its operations read it, programs set it.

#include "platform/verbose.h"

int rig_verbose;
