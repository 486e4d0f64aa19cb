#include "core/load_lib.h"

#include <cctype>
#include <cstring>

char* bounded_copy(char* dst, const char* src, int n)
{
    if (n <= 0) {
        return strcpy(dst, src);
    }
    size_t len = strlen(src);
    if (len < static_cast<size_t>(n - 1)) {
        memcpy(dst, src, len + 1);
    } else {
        memcpy(dst, src, n - 1);
        dst[n - 1] = '\0';
    }
    return dst;
}

static void to_lower(char* s)
{
    for (; *s; ++s) {
        *s = static_cast<char>(tolower(static_cast<unsigned char>(*s)));
    }
}

bool build_path_beside_module(const char* selfModuleName, const char* fileName,
                              HMODULE selfHandle, char* path)
{
    if (!selfModuleName || !fileName || !path) {
        return false;
    }
    char modulePath[MAX_PATH];
    char name[MAX_PATH];
    memset(modulePath, 0, sizeof(modulePath));
    memset(path, 0, MAX_PATH);
    memset(name, 0, sizeof(name));

    HMODULE self = selfHandle ? selfHandle : GetModuleHandleA(selfModuleName);
    GetModuleFileNameA(self, modulePath, MAX_PATH);

    bounded_copy(path, modulePath, MAX_PATH);
    bounded_copy(name, selfModuleName, MAX_PATH);
    to_lower(path);
    to_lower(name);

    char* cut = nullptr;
    if (selfHandle) {
        cut = strrchr(path, '\\');
        if (cut) {
            ++cut;
        }
    } else {
        cut = strstr(path, name);
    }
    if (!cut) {
        return false;
    }

    const int offset = static_cast<int>(cut - path);
    memset(cut, 0, MAX_PATH - offset);
    bounded_copy(cut, fileName, MAX_PATH - 1 - offset);
    return true;
}

HMODULE load_lib_beside_module(const char* selfModuleName, const char* fileName,
                               HMODULE selfHandle, bool alteredSearchPath)
{
    char path[MAX_PATH];
    if (!build_path_beside_module(selfModuleName, fileName, selfHandle, path)) {
        return nullptr;
    }
    if (alteredSearchPath) {
        return LoadLibraryExA(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    }
    return LoadLibraryA(path);
}
