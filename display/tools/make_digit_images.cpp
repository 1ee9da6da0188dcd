// Renders the ten digit images of lcd_digit from a TrueType font at build time:
// each digit anti-aliased, dark on white, centred in 100 x 100 pixels, all ten
// on one baseline. Writes them as C++ source (0x00RRGGBB words).
//
//   make_digit_images FONT.ttf OUT.cpp
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ft2build.h>
#include FT_FREETYPE_H
#include <string>
#include <vector>

namespace {

constexpr int kSide = 100;
constexpr int kMaxInk = 80;          // the tallest and widest digit fit in this square
constexpr int kStartPixels = 160;

struct Glyph {
    int left = 0, top = 0, width = 0, rows = 0;   // top: rows above the baseline
    std::vector<unsigned char> coverage;
};

bool render(FT_Face face, char digit, Glyph &g) {
    if (FT_Load_Char(face, static_cast<FT_ULong>(digit), FT_LOAD_RENDER | FT_LOAD_TARGET_NORMAL))
        return false;
    const FT_Bitmap &b = face->glyph->bitmap;
    if (b.pixel_mode != FT_PIXEL_MODE_GRAY) return false;
    g.left = face->glyph->bitmap_left;
    g.top = face->glyph->bitmap_top;
    g.width = static_cast<int>(b.width);
    g.rows = static_cast<int>(b.rows);
    g.coverage.assign(static_cast<size_t>(g.width) * g.rows, 0);
    for (int r = 0; r < g.rows; ++r)
        for (int c = 0; c < g.width; ++c)
            g.coverage[static_cast<size_t>(r) * g.width + c] = b.buffer[r * b.pitch + c];
    return true;
}

// The largest pixel size at which every digit fits the ink square.
bool render_all(FT_Face face, std::vector<Glyph> &glyphs, int &size) {
    for (size = kStartPixels; size > 8; --size) {
        if (FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(size))) return false;
        glyphs.assign(10, Glyph{});
        bool fits = true;
        for (int d = 0; d < 10 && fits; ++d) {
            if (!render(face, static_cast<char>('0' + d), glyphs[d])) return false;
            fits = glyphs[d].width <= kMaxInk && glyphs[d].rows <= kMaxInk;
        }
        if (fits) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s FONT.ttf OUT.cpp\n", argv[0]);
        return 2;
    }
    FT_Library lib;
    FT_Face face;
    if (FT_Init_FreeType(&lib) || FT_New_Face(lib, argv[1], 0, &face)) {
        std::fprintf(stderr, "%s: cannot load font %s\n", argv[0], argv[1]);
        return 1;
    }
    std::vector<Glyph> glyphs;
    int size = 0;
    if (!render_all(face, glyphs, size)) {
        std::fprintf(stderr, "%s: cannot render the digits of %s\n", argv[0], argv[1]);
        return 1;
    }

    // One baseline for all ten: the band from the highest top to the lowest
    // bottom is centred vertically; each digit is centred horizontally.
    int above = 0, below = 0;
    for (const Glyph &g : glyphs) {
        above = std::max(above, g.top);
        below = std::max(below, g.rows - g.top);
    }
    int baseline = (kSide - (above + below)) / 2 + above;

    std::string tmp = std::string(argv[2]) + ".tmp";
    FILE *out = std::fopen(tmp.c_str(), "w");
    if (!out) {
        std::perror(tmp.c_str());
        return 1;
    }
    std::fprintf(out,
                 "// Generated at build time by make_digit_images from %s at %d pixels.\n"
                 "// Do not edit: change the generator or the font instead.\n"
                 "#include \"display/digit_images.h\"\n\n"
                 "const uint32_t kDigitImages[10][kDigitSide * kDigitSide] = {\n",
                 argv[1], size);
    for (int d = 0; d < 10; ++d) {
        const Glyph &g = glyphs[d];
        int x0 = (kSide - g.width) / 2, y0 = baseline - g.top;
        std::fprintf(out, "    {   // %d\n", d);
        for (int y = 0; y < kSide; ++y) {
            std::fputs("        ", out);
            for (int x = 0; x < kSide; ++x) {
                int r = y - y0, c = x - x0;
                unsigned ink = 0;
                if (r >= 0 && r < g.rows && c >= 0 && c < g.width)
                    ink = g.coverage[static_cast<size_t>(r) * g.width + c];
                unsigned grey = 255 - ink;
                std::fprintf(out, "0x%06X,", (grey << 16) | (grey << 8) | grey);
            }
            std::fputc('\n', out);
        }
        std::fputs("    },\n", out);
    }
    std::fputs("};\n", out);
    bool ok = std::fflush(out) == 0 && !std::ferror(out);
    ok = std::fclose(out) == 0 && ok;
    if (!ok || std::rename(tmp.c_str(), argv[2]) != 0) {
        std::perror(argv[2]);
        std::remove(tmp.c_str());
        return 1;
    }
    FT_Done_Face(face);
    FT_Done_FreeType(lib);
    return 0;
}
