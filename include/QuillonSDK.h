/*
 * QuillonSDK.h - the C interface of QuillonSDK.dll.
 *
 * Valid C89 and C++. Every record is a binding byte layout: the host builds
 * it, the library reads it at fixed offsets (64-bit Windows alignment).
 * Offsets and sizes are checked at compile time where the compiler can.
 */
#ifndef QUILLON_SDK_H
#define QUILLON_SDK_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

#define QUILLON_CALL __cdecl
#ifdef QUILLON_BUILDING_SDK
#define QUILLON_API
#else
#define QUILLON_API __declspec(dllimport)
#endif

/* Opaque handles: the address of the object behind them; NULL is never valid. */
typedef void* QuillonDecoderHandle;
typedef void* QuillonRenderHandle;

/* Result codes. */
#define QUILLON_OK 0
#define QUILLON_ERR_FAIL (-1)

/* ---- decoder records ---------------------------------------------------- */

/* ---- render records ----------------------------------------------------- */

/* ---- overlay records ---------------------------------------------------- */

/* ---- exported functions ------------------------------------------------- */

#ifdef __cplusplus
}
#endif

/* ---- layout checks ------------------------------------------------------ */
#if (defined(__cplusplus) && __cplusplus >= 201103L) || (defined(_MSC_VER) && _MSC_VER >= 1900)
#define QUILLON_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define QUILLON_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#ifdef QUILLON_STATIC_ASSERT
#include <stddef.h>
/* decoder layout checks */
/* render layout checks */
/* overlay layout checks */
#endif

#endif /* QUILLON_SDK_H */
