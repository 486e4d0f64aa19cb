#include "core/CLS_VelmorApi.h"

#include <cstdio>

#include "core/load_lib.h"

CLS_VelmorApi* CLS_VelmorApi::s_pInstance = nullptr;

void core_report_missing(int line, const char* name)
{
    fprintf(stderr, "%d,%s", line, name);
}

CLS_VelmorApi& CLS_VelmorApi::GetInstance()
{
    static CLS_VelmorApi instance;
    return instance;
}

int CLS_VelmorApi::LoadOSSDK(const char* selfModuleName, HMODULE selfHandle, void* /*unused*/)
{
    if (m_hModule) {
        return 0;
    }
    m_hModule = load_lib_beside_module(selfModuleName, "Velmor.dll", selfHandle, false);
    if (!m_hModule) {
        return -1;
    }
#define VELMOR_OP(pub, ret, name, params, args, fail) \
    bind_proc(m_pfn_##name, m_hModule, #name);
#define VELMOR_LOGOP VELMOR_OP
#include "core/velmor_ops.inc"
#undef VELMOR_OP
#undef VELMOR_LOGOP
    return 0;
}

int CLS_VelmorApi::LoadOSSDKByHandle(HMODULE h)
{
    // The handle lands in the unused parameter; kept as it has always been.
    return LoadOSSDK("", nullptr, h);
}

bool CLS_VelmorApi::ReleaseOSSDK()
{
    if (!m_hModule) {
        core_report_missing(__LINE__, "ReleaseOSSDK");
        return false;
    }
    FreeLibrary(m_hModule);
    m_hModule = nullptr;
    return true;
}

void CLS_VelmorApi::ReleaseInstance()
{
    if (s_pInstance) {
        if (s_pInstance->m_hModule) {
            FreeLibrary(s_pInstance->m_hModule);
            s_pInstance->m_hModule = nullptr;
        }
        delete s_pInstance;
        s_pInstance = nullptr;
    }
}

#define VELMOR_FAIL_RET0 0
#define VELMOR_FAIL_RETM1 -1
#define VELMOR_FAIL_NORET (void)0

#define VELMOR_OP(pub, ret, name, params, args, fail)                  \
    ret CLS_VelmorApi::inner_##name params                             \
    {                                                                  \
        if (!m_pfn_##name) {                                           \
            core_report_missing(__LINE__, "CLS_VelmorApi::inner_" #name); \
            return VELMOR_FAIL_##fail;                                 \
        }                                                              \
        return m_pfn_##name args;                                      \
    }
#define VELMOR_LOGOP VELMOR_OP
#include "core/velmor_ops.inc"
#undef VELMOR_OP
#undef VELMOR_LOGOP
