// Comparing maps of tarn::VariableData for the fuzz targets: the same names in the same order,
// each with an equal value (same tag, same bits).
#pragma once

#include <map>
#include <string>

#include "bsapi/bsapi.h"

namespace ws_fuzz {

inline bool SameMap(const std::map<std::string, tarn::VariableData>& a,
                    const std::map<std::string, tarn::VariableData>& b) {
    if (a.size() != b.size())
        return false;
    for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j) {
        if (i->first != j->first || !i->second.Equals(j->second))
            return false;
    }
    return true;
}

}  // namespace ws_fuzz
