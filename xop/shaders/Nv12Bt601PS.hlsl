#define COEFFICIENTS BT601
#include "Nv12.hlsli"
