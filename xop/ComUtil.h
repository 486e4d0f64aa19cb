#pragma once
// Releasing raw COM pointers by hand.

namespace xop {

template <class T>
inline void SafeRelease(T*& p) {
    if (p) {
        p->Release();
        p = nullptr;
    }
}

}  // namespace xop
