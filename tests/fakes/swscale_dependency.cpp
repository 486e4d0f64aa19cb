// The sibling the swscale stand-in imports; built outside the bin directory.
extern "C" __declspec(dllexport) int FfTestDependency() { return 7; }
