// Limited-range YUV to RGB; alpha 1, no clamping (the UNORM target clamps).
// A macro rather than a function: every compiler in use inlines it alike.
#define YUV_TO_RGB(y, u, v, kRV, kGU, kGV, kBU)                              \
    float4(1.1644f * ((y) - 0.0627451017f) + (kRV) * ((v) - 0.501960814f),  \
           1.1644f * ((y) - 0.0627451017f) + (kGU) * ((u) - 0.501960814f)   \
               + (kGV) * ((v) - 0.501960814f),                              \
           1.1644f * ((y) - 0.0627451017f) + (kBU) * ((u) - 0.501960814f),  \
           1.0f)
