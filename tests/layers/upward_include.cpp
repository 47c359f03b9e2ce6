// Compiled as part of the credit class's layer, this include must not be found: the classes sit
// below PublicData, which dispatches to them. The test passes only when the compiler refuses it.
#include "billdata/publicdata/publicdata.h"
