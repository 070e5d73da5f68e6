// tarn::MemCache: a raw byte buffer that always keeps a zero byte after its data.
#include <cstring>

#include "bsapi/bsapi.h"

namespace tarn {

MemCache::MemCache() : m_vecData(1, '\0') {}
MemCache::MemCache(size_t size) : m_vecData(size + 1, '\0') {}
MemCache::MemCache(const void* data, size_t size) : m_vecData(1, '\0') {
    Assign(data, size);
}

bool MemCache::Resize(size_t size) {
    try {
        m_vecData.resize(size + 1, '\0');
        m_vecData[size] = '\0';
        return true;
    } catch (...) {
        return false;
    }
}

bool MemCache::Assign(const void* data, size_t size) {
    if (data == nullptr && size > 0)
        return false;
    try {
        std::vector<char> copy(size + 1, '\0');
        if (size > 0)
            std::memcpy(copy.data(), data, size);
        m_vecData.swap(copy);
        return true;
    } catch (...) {
        return false;
    }
}

bool MemCache::Append(const void* data, size_t size) {
    if (data == nullptr && size > 0)
        return false;
    size_t old = GetSize();
    if (!Resize(old + size))
        return false;
    if (size > 0)
        std::memcpy(m_vecData.data() + old, data, size);
    return true;
}

void MemCache::Clear() {
    m_vecData.assign(1, '\0');
}

}  // namespace tarn
