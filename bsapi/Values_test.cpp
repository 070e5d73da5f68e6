// Texts stored into typed table fields, through the API: a text enters an integer field only when
// the whole of it is a decimal number that fits, and a floating-point field only when every byte
// of it is read; anything else is refused with BS_ERR_TYPE and nothing is stored.
#include <gtest/gtest.h>

#include <string>

#include "bsapi/bsapi.h"

using tarn::VariableData;

namespace {

// Field positions of the test table, in field order.
enum { kInt16, kInt64, kUint8, kUint64, kDouble, kFields };

struct Case {
    int field;
    std::string text;
    VariableData stored;  // empty: refused with BS_ERR_TYPE
};

const Case kCases[] = {
    {kUint64, "\t-5", VariableData()},  // strtoull skips the blank and negates
    {kUint64, std::string("2\0junk", 6), VariableData()},
    {kUint64, "-5", VariableData()},
    {kUint64, "18446744073709551615", VariableData(18446744073709551615ull)},
    {kUint64, "18446744073709551616", VariableData()},
    {kUint64, "-0", VariableData(0ull)},
    {kInt16, " 5", VariableData()},
    {kInt16, "5 ", VariableData()},
    {kInt16, "+5", VariableData()},
    {kInt16, "-", VariableData()},
    {kInt16, "", VariableData()},
    {kInt16, "0x10", VariableData()},
    {kInt16, "-32768", VariableData(static_cast<short>(-32768))},
    {kInt16, "32768", VariableData()},
    {kInt64, "-9223372036854775808", VariableData(-9223372036854775807ll - 1)},
    {kInt64, "-9223372036854775809", VariableData()},
    {kInt64, "99999999999999999999999", VariableData()},
    {kUint8, "255", VariableData(static_cast<unsigned char>(255))},
    {kUint8, "256", VariableData()},
    {kDouble, "\t1.5", VariableData()},
    {kDouble, std::string("1.5\0x", 5), VariableData()},
    {kDouble, "1.5e3", VariableData(1500.0)},
};

TEST(ValuesTest, TextEntersATypedFieldOnlyWhenItIsWhollyANumberThatFits) {
    void* h = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_tabledb_open(h, "values", "", "", 0, 0, "127.0.0.1", 23500), BS_OK);
    bs_tdfield f16("i16", VariableData::VT_INT16), f64("i64", VariableData::VT_INT64),
        u8("u8", VariableData::VT_UINT8), u64("u64", VariableData::VT_UINT64),
        dbl("dbl", VariableData::VT_DOUBLE);
    std::list<bs_tdfield*> fields = {&f16, &f64, &u8, &u64, &dbl};
    const char* const names[kFields] = {"i16", "i64", "u8", "u64", "dbl"};
    ASSERT_EQ(bs_tabledb_create_table(h, "t", fields, 0), BS_OK);

    for (const Case& c : kCases) {
        std::list<VariableData> values(kFields);
        *std::next(values.begin(), c.field) = VariableData(c.text);
        unsigned long long id = 0;
        const int code = bs_tabledb_insert_record(h, "t", values, id);
        const std::string what = std::string(names[c.field]) + " <- \"" + c.text + "\"";
        if (c.stored.IsEmpty()) {
            EXPECT_EQ(code, BS_ERR_TYPE) << what;
            // The same text is no selection value for the field either.
            void* cursor = BS_INVALID_HANDLE;
            unsigned int count = 0;
            VariableData from(c.text);
            EXPECT_EQ(bs_tabledb_get_record_by_field(h, "t", names[c.field], &from, nullptr,
                                                     BS_CMP_EQUAL, BS_SEL_FIELD, count, cursor),
                      BS_ERR_TYPE)
                << what;
            continue;
        }
        ASSERT_EQ(code, BS_OK) << what;
        void* cursor = BS_INVALID_HANDLE;
        unsigned int count = 0;
        VariableData key(id);
        ASSERT_EQ(bs_tabledb_get_record_by_field(h, "t", nullptr, &key, nullptr, BS_CMP_EQUAL,
                                                 BS_SEL_AUTOID, count, cursor),
                  BS_OK);
        bs_record record;
        ASSERT_EQ(bs_tabledb_get_cursor(cursor, record), BS_OK) << what;
        EXPECT_TRUE(record[names[c.field]].Equals(c.stored)) << what;
        bs_close_handle(cursor);
    }
    unsigned int deleted = 0;
    EXPECT_EQ(bs_tabledb_delete_record_by_ctime(h, "t", 0, nullptr, 0, BS_CMP_ALL, deleted), BS_OK);
    EXPECT_EQ(deleted, 6u) << "only the texts that fit were stored";
    bs_close_handle(h);
}

}  // namespace
