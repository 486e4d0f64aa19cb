#pragma once
// Debug output of the renderer core. Every message is formatted into a
// zero-filled 255-byte buffer and handed to the sink, OutputDebugStringA
// unless a test replaced it.

namespace xop {

using DebugSink = void (*)(const char* message);

// Installs `sink` (null restores OutputDebugStringA); returns the previous one.
DebugSink SetDebugSink(DebugSink sink);

// Formats `format` (which begins "[%s:%d]" and takes the function name and
// line first) into the 255-byte buffer and writes it to the sink.
void DebugPrint(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace xop
