#pragma once
// What the recording Velmor.dll (tests/fakes/velmor_recording.cpp) saw: one entry per call.
#include <string>
#include <vector>

namespace testkit {

// Recorded calls in order; `a + b` is the calls of a, then those of b.
struct Calls : std::vector<std::string> {
    using std::vector<std::string>::vector;
    Calls operator+(const Calls& more) const {
        Calls all = *this;
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }
};

// One error-log record: the position line "file: <file>, func:<func>, line: <line> ", then the
// message (split at a line break, as TakeVelmorCalls splits it).
Calls ErrorRecord(const std::string& file, const std::string& func, int line, const std::string& message);

// The calls the loaded recording Velmor.dll has seen since the last call.
Calls TakeVelmorCalls();

// Sets the two levels the recording module hands to the SDK's log gate.
void SetVelmorLevels(int first, int second);

}  // namespace testkit
