#define COEFFICIENTS BT709
#include "Nv12.hlsli"
