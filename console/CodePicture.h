// The verification-code picture drawn as SVG, and the random pick of a code.
#pragma once

#include <string>

namespace console {

// An SVG picture of `code` with jittered characters and noise. An empty code draws `notice`
// (plain, small) over the noise instead.
std::string CodePictureSvg(const std::string& code, const std::string& notice);
// `text` with the five XML special characters escaped.
std::string XmlEscape(const std::string& text);
// A random non-negative number for BSGetVerifyCode's pick.
int RandomIndex();

}  // namespace console
