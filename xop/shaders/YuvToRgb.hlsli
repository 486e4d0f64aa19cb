// Limited-range YUV to RGB; alpha 1, no clamping (the UNORM target clamps).
// k holds (kRV, kGU, kGV, kBU). A macro rather than a function: every
// compiler in use inlines it alike.
#define YUV_TO_RGB(y, u, v, k)                                               \
    float4(1.1644f * ((y) - 0.0627451017f) + (k).x * ((v) - 0.501960814f),  \
           1.1644f * ((y) - 0.0627451017f) + (k).y * ((u) - 0.501960814f)   \
               + (k).z * ((v) - 0.501960814f),                              \
           1.1644f * ((y) - 0.0627451017f) + (k).w * ((u) - 0.501960814f),  \
           1.0f)

// (kRV, kGU, kGV, kBU) of each standard.
#define BT601 float4(1.596f, -0.3918f, -0.813f, 2.0172f)
#define BT709 float4(1.7927f, -0.2132f, -0.5329f, 2.1124f)
