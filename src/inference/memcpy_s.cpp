#include "inference/memcpy_s.h"

#include <cerrno>
#include <cstring>

int memcpy_s(void* dest, size_t destSize, const void* src, size_t count) {
    if (dest == nullptr || src == nullptr) {
        return EINVAL;
    }
    if (count > destSize) {
        return ERANGE;
    }
    memcpy(dest, src, count);
    return 0;
}
