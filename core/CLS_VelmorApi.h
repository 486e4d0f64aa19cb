#pragma once
// Binding of the core-services module "Velmor.dll": one slot per operation,
// filled by name at load time, and one checked wrapper (inner_<name>) per
// slot. Generated from core/velmor_ops.inc.
#include <windows.h>

typedef void* (*VelmorThreadFn)(void*);
typedef void (*VelmorFreeFn)(void*);

class CLS_VelmorApi {
public:
    static CLS_VelmorApi& GetInstance();

    CLS_VelmorApi() = default;
    ~CLS_VelmorApi() {}

    // 0 when loaded (now or before), -1 when "Velmor.dll" cannot be loaded.
    int LoadOSSDK(const char* selfModuleName, HMODULE selfHandle, void* unused);
    int LoadOSSDKByHandle(HMODULE h);
    bool ReleaseOSSDK();

    // The release path of QuillonCleanup: acts on s_pInstance only.
    static void ReleaseInstance();

#define VELMOR_OP(pub, ret, name, params, args, fail) ret inner_##name params;
#define VELMOR_LOGOP VELMOR_OP
#include "core/velmor_ops.inc"
#undef VELMOR_OP
#undef VELMOR_LOGOP

#define VELMOR_OP(pub, ret, name, params, args, fail) ret(*m_pfn_##name) params = nullptr;
#define VELMOR_LOGOP VELMOR_OP
#include "core/velmor_ops.inc"
#undef VELMOR_OP
#undef VELMOR_LOGOP

    HMODULE m_hModule = nullptr;

    // Registered binding instance for the release path; nothing sets it.
    static CLS_VelmorApi* s_pInstance;
};

// The standard-error report of a missing entry point: "%d,%s", no newline.
void core_report_missing(int line, const char* name);
