#define COEFFICIENTS BT601
#include "I420.hlsli"
