#pragma once
#include <windows.h>

// Loads `fileName` from the directory that holds the library's own module
// (never from the system search path). `selfModuleName` names that module
// ("QuillonSDK.dll"); `selfHandle`, when given, is used instead of looking the
// name up. `alteredSearchPath` selects LoadLibraryExA(LOAD_WITH_ALTERED_SEARCH_PATH)
// over LoadLibraryA. Returns the module handle, or NULL.
HMODULE load_lib_beside_module(const char* selfModuleName, const char* fileName,
                               HMODULE selfHandle, bool alteredSearchPath);

// Copies at most n - 1 characters of src and terminates; n <= 0 copies
// without limit.
char* bounded_copy(char* dst, const char* src, int n);

// Fills `path` (MAX_PATH bytes) with the path load_lib_beside_module would
// load, without loading it. Returns false when no cut point was found.
bool build_path_beside_module(const char* selfModuleName, const char* fileName,
                              HMODULE selfHandle, char* path);

// slot = GetProcAddress(module, name), typed as the slot; null when absent.
template <typename Fn>
inline void bind_proc(Fn& slot, HMODULE module, const char* name)
{
    slot = reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}
