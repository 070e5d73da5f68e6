// The verification-code picture: an SVG in which every character of the code is drawn as pen
// strokes (paths) from a small stroke font, each point moved at random and each glyph scaled,
// slanted and turned on its own, among decoy strokes and dots. The picture's source holds no
// text, no font and no glyph names: neither the code's characters nor anything from which a
// program could read them without recognising the shapes.
#include <sys/random.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "console/ConsoleHandlers.h"

namespace console {

namespace {

// Strokes on a grid 4 wide and 6 high (y downwards): polylines of "x,y" points, "|" between
// strokes. Letters are drawn as capitals (codes are read without regard to case); the zero
// carries a slash so that it never reads as the letter O.
const char* Glyph(char c) {
    static const char* const kDigits[10] = {
        "1,0 3,0 4,1 4,5 3,6 1,6 0,5 0,1 1,0|4,1 0,5",
        "1,1 2,0 2,6|1,6 3,6",
        "0,1 1,0 3,0 4,1 4,2 0,6 4,6",
        "0,0 4,0 2,2.5 3,2.5 4,3.5 4,5 3,6 1,6 0,5",
        "3,6 3,0 0,4 4,4",
        "4,0 0,0 0,3 3,3 4,4 4,5 3,6 0,6",
        "4,0 1,0 0,1 0,5 1,6 3,6 4,5 4,4 3,3 0,3",
        "0,0 4,0 1,6",
        "1,3 0,2 0,1 1,0 3,0 4,1 4,2 3,3 1,3 0,4 0,5 1,6 3,6 4,5 4,4 3,3",
        "4,3 1,3 0,2 0,1 1,0 3,0 4,1 4,5 3,6 0,6",
    };
    static const char* const kLetters[26] = {
        "0,6 0,2 2,0 4,2 4,6|0,4 4,4",
        "0,0 0,6 3,6 4,5 4,4 3,3 0,3|0,0 3,0 4,1 4,2 3,3",
        "4,0 1,0 0,1 0,5 1,6 4,6",
        "0,0 0,6 2,6 4,4 4,2 2,0 0,0",
        "4,0 0,0 0,6 4,6|0,3 3,3",
        "4,0 0,0 0,6|0,3 3,3",
        "4,1 3,0 1,0 0,1 0,5 1,6 3,6 4,5 4,3 2,3",
        "0,0 0,6|4,0 4,6|0,3 4,3",
        "1,0 3,0|2,0 2,6|1,6 3,6",
        "1,0 4,0|3,0 3,5 2,6 1,6 0,5",
        "0,0 0,6|4,0 0,4|1,3 4,6",
        "0,0 0,6 4,6",
        "0,6 0,0 2,3 4,0 4,6",
        "0,6 0,0 4,6 4,0",
        "1,0 3,0 4,1 4,5 3,6 1,6 0,5 0,1 1,0",
        "0,6 0,0 3,0 4,1 4,2 3,3 0,3",
        "1,0 3,0 4,1 4,5 3,6 1,6 0,5 0,1 1,0|2,4 4,6",
        "0,6 0,0 3,0 4,1 4,2 3,3 0,3|2,3 4,6",
        "4,1 3,0 1,0 0,1 0,2 1,3 3,3 4,4 4,5 3,6 1,6 0,5",
        "0,0 4,0|2,0 2,6",
        "0,0 0,5 1,6 3,6 4,5 4,0",
        "0,0 2,6 4,0",
        "0,0 1,6 2,3 3,6 4,0",
        "0,0 4,6|4,0 0,6",
        "0,0 2,3 4,0|2,3 2,6",
        "0,0 4,0 0,6 4,6",
    };
    if (c >= '0' && c <= '9')
        return kDigits[c - '0'];
    if (c >= 'a' && c <= 'z')
        return kLetters[c - 'a'];
    if (c >= 'A' && c <= 'Z')
        return kLetters[c - 'A'];
    if (c == '-')
        return "0,3 4,3";
    return "0,0 4,0 4,6 0,6 0,0|0,0 4,6";  // a character the font lacks: a crossed box
}

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

double RandomReal(double lo, double hi) {
    return lo + (hi - lo) * RandomBelow(1000001) / 1000000.0;
}

std::string Colour(int lo, int hi) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "#%02x%02x%02x", RandomBetween(lo, hi), RandomBetween(lo, hi),
                  RandomBetween(lo, hi));
    return buf;
}

struct Point {
    double x, y;
};

// One path element: a polyline through `points`, each point and each midpoint moved at random,
// so that no two drawings of a stroke share their numbers.
std::string StrokePath(const std::vector<Point>& points, const std::string& colour, double width) {
    std::string d;
    char buf[64];
    for (size_t i = 0; i < points.size(); ++i) {
        if (i > 0) {
            const Point mid{(points[i - 1].x + points[i].x) / 2 + RandomReal(-1.2, 1.2),
                            (points[i - 1].y + points[i].y) / 2 + RandomReal(-1.2, 1.2)};
            std::snprintf(buf, sizeof buf, " L%.1f %.1f", mid.x, mid.y);
            d += buf;
        }
        std::snprintf(buf, sizeof buf, "%s%.1f %.1f", i == 0 ? "M" : " L",
                      points[i].x + RandomReal(-0.9, 0.9), points[i].y + RandomReal(-0.9, 0.9));
        d += buf;
    }
    std::snprintf(buf, sizeof buf, "%.1f", width);
    return "<path d=\"" + d + "\" stroke=\"" + colour + "\" stroke-width=\"" + buf +
           "\" fill=\"none\" stroke-linecap=\"round\" stroke-linejoin=\"round\"/>";
}

// The strokes of one glyph placed in the cell whose left edge is `left`: its own size, slant
// and turn.
void DrawGlyph(char c, double left, double height, std::vector<std::string>& out) {
    const double sx = RandomReal(3.0, 4.0), sy = RandomReal(4.2, 5.2);
    const double slant = RandomReal(-0.3, 0.3), turn = RandomReal(-0.35, 0.35);
    const double cx = left + 10 + RandomReal(-2, 2), cy = height / 2 + RandomReal(-3, 3);
    const std::string colour = Colour(20, 110);
    const double width = RandomReal(2.2, 3.0);
    const char* strokes = Glyph(c);
    std::vector<Point> stroke;
    for (const char* p = strokes;;) {
        if (*p == '|' || *p == '\0') {
            if (stroke.size() > 1)
                out.push_back(StrokePath(stroke, colour, width));
            stroke.clear();
            if (*p == '\0')
                break;
            ++p;
            continue;
        }
        char* end = nullptr;
        const double gx = std::strtod(p, &end) - 2.0;
        const double gy = std::strtod(end + 1, &end) - 3.0;
        p = *end == ' ' ? end + 1 : end;
        const double x = (gx + slant * gy) * sx, y = gy * sy;
        stroke.push_back({cx + x * std::cos(turn) - y * std::sin(turn),
                          cy + x * std::sin(turn) + y * std::cos(turn)});
    }
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
    const int step = 26;
    const int width = code.empty() ? 240 : 16 + step * static_cast<int>(code.size());
    char buf[256];
    std::snprintf(buf, sizeof buf,
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
                  "viewBox=\"0 0 %d %d\" role=\"img\">",
                  width, height, width, height);
    std::string svg = buf;
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"" + Colour(225, 250) + "\"/>";
    for (int i = 0; i < 30; ++i) {
        std::snprintf(buf, sizeof buf, "<circle cx=\"%d\" cy=\"%d\" r=\"1\" fill=\"%s\"/>",
                      RandomBetween(0, width), RandomBetween(0, height), Colour(60, 220).c_str());
        svg += buf;
    }
    // Glyph strokes and decoy strokes of the same make, in random order.
    std::vector<std::string> paths;
    for (size_t i = 0; i < code.size(); ++i)
        DrawGlyph(code[i], 8 + step * static_cast<double>(i), height, paths);
    const int decoys = 3 + static_cast<int>(code.size()) / 2;
    for (int i = 0; i < decoys; ++i) {
        std::vector<Point> line;
        const int points = RandomBetween(2, 4);
        for (int k = 0; k < points; ++k)
            line.push_back({RandomReal(0, width), RandomReal(4, height - 4)});
        paths.push_back(StrokePath(line, Colour(110, 190), RandomReal(0.8, 1.6)));
    }
    for (size_t i = paths.size(); i > 1; --i)
        std::swap(paths[i - 1], paths[RandomBelow(static_cast<unsigned>(i))]);
    for (const std::string& p : paths)
        svg += p;
    if (code.empty()) {
        // No code at all: the picture says so in words (there is nothing to protect).
        svg +=
            "<text x=\"6\" y=\"27\" font-family=\"sans-serif\" font-size=\"13\" "
            "fill=\"#8b1d1d\">" +
            XmlEscape(notice) + "</text>";
    }
    svg += "</svg>";
    return svg;
}

int RandomIndex() {
    return static_cast<int>(RandomBelow(0x7fffffffu));
}

}  // namespace console
