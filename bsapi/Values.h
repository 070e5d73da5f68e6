// Internal value helpers shared by the API layer and the engines: tag checks and typed coercion.
#pragma once

#include "bsapi/bsapi.h"

namespace bsapi {

// True for the eleven value tags (not for empty).
bool IsValueTag(unsigned char tag);

// Converts `in` to a value of tag `tag` for storing in a typed field: numbers convert when the
// value fits the target's range exactly (integers) or approximately (float, double); a string
// converts when the whole text is a number. An empty value stays empty. False when it does not fit.
bool CoerceToTag(const tarn::VariableData& in, unsigned char tag, tarn::VariableData& out);

// Converts `in` for storing in table field `field` (every engine goes through this, so that both
// refuse the same values): BS_ERR_TYPE when it does not fit the type or is a NaN, BS_ERR_TOO_BIG
// when it is longer than the field's length.
int CoerceToField(const bs_tdfield& field, const tarn::VariableData& in, tarn::VariableData& out);

}  // namespace bsapi
