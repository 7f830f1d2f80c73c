// Numbers of the module's resources. Read by the resource compiler as well: definitions only.
#pragma once

#define ZARVO_TYPE_LIBRARY 3
#define ZARVO_REGISTRY_SCRIPT 4104
