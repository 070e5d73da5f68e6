// Fuzz target: the script-injection filter BSCheckXSS against the model of XssModel.h: the same
// answer, the same rewrite of the first refused parameter, every other parameter unchanged, and
// a rewritten value never refused again.
//
// Input: lines of "name=value" (the first "=" splits; a line without one is a name with an
// empty value; a name given twice keeps its last value).
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "fuzz/FuzzCheck.h"
#include "fuzz/XssModel.h"
#include "protect/XssFilter.h"

namespace {

using Params = std::map<std::string, std::string>;

std::string ShowMap(const Params& params) {
    std::string out;
    for (const auto& p : params)
        out += ws_fuzz::Show(p.first) + " = " + ws_fuzz::Show(p.second) + "\n";
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    Params params;
    for (const std::string& line : ws_fuzz::Split(input, '\n')) {
        const size_t eq = line.find('=');
        params[line.substr(0, eq)] = eq == std::string::npos ? "" : line.substr(eq + 1);
    }

    Params got = params;
    Params want = params;
    const uint32_t result = BSCheckXSS(got);
    const unsigned expected = ws_fuzz::ModelXss(want);
    FUZZ_EQ(result, expected, "input\n" + ShowMap(params));
    FUZZ_CHECK(got == want,
               "input\n" + ShowMap(params) + "got\n" + ShowMap(got) + "want\n" + ShowMap(want));

    // Whatever was refused has been neutralised: a second pass gets past it and stops, if at
    // all, at a later parameter.
    if (result == 0) {
        Params again = got;
        Params againWant = got;
        FUZZ_EQ(BSCheckXSS(again), ws_fuzz::ModelXss(againWant), ShowMap(got));
        FUZZ_CHECK(again == againWant, ShowMap(got));
        auto first = params.begin();
        while (first != params.end() && got.at(first->first) == first->second)
            ++first;
        FUZZ_CHECK(first != params.end(), "refused without a rewrite\n" + ShowMap(params));
        FUZZ_CHECK(got.at(first->first).find('<') == std::string::npos, ShowMap(got));
    }
    return 0;
}
