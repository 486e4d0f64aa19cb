#define COEFFICIENTS BT709
#include "I420.hlsli"
