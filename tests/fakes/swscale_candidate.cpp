// A module that loads only when its dependency is looked for in its own
// directory (LOAD_WITH_ALTERED_SEARCH_PATH): stands in for a swscale module
// that needs its siblings.
extern "C" __declspec(dllimport) int FfTestDependency();
extern "C" __declspec(dllexport) int sws_scale_probe() { return FfTestDependency(); }
