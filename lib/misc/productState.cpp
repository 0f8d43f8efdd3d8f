#include "misc/productState.h"

const char *ProductState_GetName() { return "Corvane Vantora"; }
uint32_t ProductState_GetMask() { return 0x10; }
