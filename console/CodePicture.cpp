// The verification-code picture: an SVG with the code's characters jittered (position, angle,
// size, colour) over noise lines and dots, so that the code is read by eye rather than copied
// as text.
#include <sys/random.h>

#include <cstdio>

#include "console/ConsoleHandlers.h"

namespace console {

namespace {

// A uniform-enough number in [0, n) from the kernel's random source (n small).
unsigned RandomBelow(unsigned n) {
    unsigned value = 0;
    while (getrandom(&value, sizeof value, 0) != static_cast<ssize_t>(sizeof value)) {
    }
    return n == 0 ? 0 : value % n;
}

int RandomBetween(int lo, int hi) {
    return lo + static_cast<int>(RandomBelow(static_cast<unsigned>(hi - lo + 1)));
}

std::string Colour(int lo, int hi) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "#%02x%02x%02x", RandomBetween(lo, hi), RandomBetween(lo, hi),
                  RandomBetween(lo, hi));
    return buf;
}

}  // namespace

std::string XmlEscape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string CodePictureSvg(const std::string& code, const std::string& notice) {
    const int height = 44;
    const int step = 24;
    const int width = code.empty() ? 240 : 20 + step * static_cast<int>(code.size());
    char buf[256];
    std::string svg;
    std::snprintf(buf, sizeof buf,
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
                  "viewBox=\"0 0 %d %d\" role=\"img\">",
                  width, height, width, height);
    svg += buf;
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"" + Colour(225, 250) + "\"/>";
    for (int i = 0; i < 5; ++i) {
        std::snprintf(buf, sizeof buf,
                      "<line x1=\"%d\" y1=\"%d\" x2=\"%d\" y2=\"%d\" stroke=\"%s\" "
                      "stroke-width=\"%d\"/>",
                      RandomBetween(0, width / 3), RandomBetween(0, height),
                      RandomBetween(2 * width / 3, width), RandomBetween(0, height),
                      Colour(90, 200).c_str(), RandomBetween(1, 2));
        svg += buf;
    }
    for (int i = 0; i < 30; ++i) {
        std::snprintf(buf, sizeof buf, "<circle cx=\"%d\" cy=\"%d\" r=\"1\" fill=\"%s\"/>",
                      RandomBetween(0, width), RandomBetween(0, height), Colour(60, 220).c_str());
        svg += buf;
    }
    for (size_t i = 0; i < code.size(); ++i) {
        const int x = 12 + step * static_cast<int>(i) + RandomBetween(-2, 2);
        const int y = 30 + RandomBetween(-5, 5);
        std::snprintf(buf, sizeof buf,
                      "<text x=\"%d\" y=\"%d\" font-family=\"monospace\" font-size=\"%d\" "
                      "font-weight=\"bold\" fill=\"%s\" transform=\"rotate(%d %d %d)\">",
                      x, y, RandomBetween(22, 28), Colour(20, 120).c_str(), RandomBetween(-25, 25),
                      x + 6, y - 8);
        svg += buf;
        svg += XmlEscape(code.substr(i, 1));
        svg += "</text>";
    }
    if (code.empty()) {
        svg +=
            "<text x=\"6\" y=\"27\" font-family=\"sans-serif\" font-size=\"13\" "
            "fill=\"#8b1d1d\">" +
            XmlEscape(notice) + "</text>";
    }
    // Two more lines across the characters make plain text recognition harder.
    for (int i = 0; i < 2; ++i) {
        std::snprintf(buf, sizeof buf,
                      "<path d=\"M0 %d Q %d %d %d %d\" stroke=\"%s\" fill=\"none\" "
                      "stroke-width=\"1.5\"/>",
                      RandomBetween(10, height - 10), width / 2, RandomBetween(0, height), width,
                      RandomBetween(10, height - 10), Colour(60, 160).c_str());
        svg += buf;
    }
    svg += "</svg>";
    return svg;
}

int RandomIndex() {
    return static_cast<int>(RandomBelow(0x7fffffffu));
}

}  // namespace console
