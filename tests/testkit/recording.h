#pragma once
// What the recording Velmor.dll (tests/fakes/velmor_recording.cpp, staged as
// "Velmor.dll") saw: one entry per call, "name" or "name(text)".
#include <string>
#include <vector>

namespace testkit {

// Recorded calls in order; `a + b` is the calls of a, then those of b.
struct Calls : std::vector<std::string> {
    using std::vector<std::string>::vector;
    Calls operator+(const Calls& more) const
    {
        Calls all = *this;
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
};

// One record of the error-log sequence as recorded: the position line
// "file: <file>, func:<func>, line: <line> ", then the message. A message
// with a line break splits its entry there, as TakeVelmorCalls does.
Calls ErrorRecord(const std::string& file, const std::string& func, int line, const std::string& message);

// The calls the recording Velmor.dll loaded in this process has seen since
// the last call.
Calls TakeVelmorCalls();

// Sets the two levels the recording module hands to the SDK's log gate.
void SetVelmorLevels(int first, int second);

}  // namespace testkit
