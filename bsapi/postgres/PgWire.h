// The networked engine's statement parameters and results, both in PostgreSQL's binary format, so
// that every byte of a name or value travels as it is and nothing is ever spliced into SQL text.
#pragma once

#include <libpq-fe.h>

#include <string>
#include <vector>

#include "bsapi/bsapi.h"

namespace bsapi {

// Parameters $1, $2, ... in order. The statement text casts each one ($1::bigint, $2::bytea, ...),
// so the server knows the binary form it receives.
class CPgParams {
public:
    CPgParams& Int(long long v);  // bigint (int and int4 take the same 8 bytes here)
    CPgParams& Float(double v);   // float8
    CPgParams& Bytes(const std::string& s);
    CPgParams& Null();
    // A value in its serial form (properties and messages keep their tag and every bit).
    CPgParams& Serial(const tarn::VariableData& v);
    // A value already coerced to a table field's type: bytea for strings, float8 for floating
    // point, bigint for the rest (uint64 as its two's complement, as the embedded engine keeps
    // it); empty is NULL.
    CPgParams& Field(const tarn::VariableData& v);
    // A one-dimensional bytea[] of these byte strings.
    CPgParams& BytesArray(const std::vector<std::string>& items);

    int Count() const { return static_cast<int>(m_vecData.size()); }
    // Pointers for libpq, valid while this object is unchanged.
    void Arrays(std::vector<const char*>& values, std::vector<int>& lengths,
                std::vector<int>& formats) const;

private:
    std::vector<std::string> m_vecData;
    std::vector<char> m_vecNull;
};

// One result, freed with the object. Columns are read in their binary form.
class CPgResult {
public:
    CPgResult() = default;
    ~CPgResult() { PQclear(m_pRes); }
    CPgResult(const CPgResult&) = delete;
    CPgResult& operator=(const CPgResult&) = delete;
    void Reset(PGresult* res) {
        PQclear(m_pRes);
        m_pRes = res;
    }

    int Rows() const { return m_pRes ? PQntuples(m_pRes) : 0; }
    bool IsNull(int row, int col) const { return PQgetisnull(m_pRes, row, col) != 0; }
    long long Int(int row, int col) const;  // smallint, int, bigint or boolean; NULL gives 0
    double Float(int row, int col) const;   // float8
    std::string Bytes(int row, int col) const;
    // A value stored in its serial form; false when the bytes are not one (NULL included).
    bool Serial(int row, int col, tarn::VariableData& out) const;
    // A table field of tag `tag` (see CPgParams::Field); NULL gives the empty value.
    void Field(int row, int col, unsigned char tag, tarn::VariableData& out) const;
    long long Affected() const;  // rows changed by INSERT, UPDATE or DELETE

private:
    PGresult* m_pRes = nullptr;
};

}  // namespace bsapi
