#pragma once
#include <cstdint>
const char *ProductState_GetName();
uint32_t ProductState_GetMask();
