#include "xop/XopDebug.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>

namespace xop {

namespace {
DebugSink g_sink = nullptr;
}

DebugSink SetDebugSink(DebugSink sink) {
    DebugSink previous = g_sink;
    g_sink = sink;
    return previous;
}

void DebugPrint(const char* format, ...) {
    char buffer[255] = {0};
    va_list args;
    va_start(args, format);
    vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    if (g_sink) {
        g_sink(buffer);
    } else {
        OutputDebugStringA(buffer);
    }
}

}  // namespace xop
