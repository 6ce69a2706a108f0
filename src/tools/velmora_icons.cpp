// velmora-icons: draws the widget kit's icon atlas, "icons.jpg", of the
// workspace template. The picture is 512 by 512, seen as 32 by 32 cells of
// 16 pixels. The kit reads cell n at s from (n mod 32) / 32 and t from
// (n div 32) / 32 + 1/4 down to one cell less, and t runs up from the
// picture's bottom row (as for the fonts): so cell row 0 ends a quarter of
// the way up, each further row lies one cell higher, and every cell is
// stored upside down, its top at the bottom of its band.
//
// Cells: 0 folder, 1 file, 2 play, 3 stop, 4 pause, 5 arrow up, 6 arrow
// down, 7 plus, 8 minus, 9 cross, 10 check mark, 11 magnifier.
//
//   velmora-icons OUTPUT_FOLDER
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <stb/stb_image_write.h>

namespace {

constexpr int kSide = 512;
constexpr int kCell = kSide / 32;

struct Rgb {
    unsigned char r, g, b;
};

constexpr Rgb kBack{192, 192, 192};
constexpr Rgb kFolder{232, 188, 64};
constexpr Rgb kFolderTab{190, 145, 40};
constexpr Rgb kPaper{250, 250, 250};
constexpr Rgb kInk{60, 60, 60};
constexpr Rgb kGreen{40, 160, 60};
constexpr Rgb kRed{200, 50, 40};
constexpr Rgb kBlue{40, 90, 190};

class Atlas {
public:
    Atlas() : m_pixels(static_cast<size_t>(kSide) * kSide * 3)
    {
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x) put(x, y, kBack);
    }
    // The picture's pixel (rows from its top) of cell n's pixel (x, y),
    // y counted down from the top of the cell as it is seen.
    static int pictureX(int n, int x) { return (n % 32) * kCell + x; }
    static int pictureY(int n, int y) { return kSide * 3 / 4 - (n / 32) * kCell + (kCell - 1 - y); }

    // A rectangle inside cell n, in cell pixels from its top left, end excluded.
    void rect(int n, int x0, int y0, int x1, int y1, Rgb c)
    {
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x) put(pictureX(n, x), pictureY(n, y), c);
    }
    // Cell pixels for which `inside(x + 0.5, y + 0.5)` holds.
    template <class F>
    void shape(int n, Rgb c, F inside)
    {
        for (int y = 0; y < kCell; ++y)
            for (int x = 0; x < kCell; ++x)
                if (inside(x + 0.5, y + 0.5)) put(pictureX(n, x), pictureY(n, y), c);
    }
    bool write(const std::string& path) const
    {
        return stbi_write_jpg(path.c_str(), kSide, kSide, 3, m_pixels.data(), 95) != 0;
    }

private:
    void put(int x, int y, Rgb c)
    {
        unsigned char* p = &m_pixels[(static_cast<size_t>(y) * kSide + x) * 3];
        p[0] = c.r;
        p[1] = c.g;
        p[2] = c.b;
    }
    std::vector<unsigned char> m_pixels;
};

// Distance from (px, py) to the segment (ax, ay)-(bx, by).
double segment(double px, double py, double ax, double ay, double bx, double by)
{
    const double vx = bx - ax, vy = by - ay;
    double t = ((px - ax) * vx + (py - ay) * vy) / (vx * vx + vy * vy);
    t = t < 0 ? 0 : t > 1 ? 1 : t;
    return std::hypot(px - ax - t * vx, py - ay - t * vy);
}

void draw(Atlas& a)
{
    // 0 folder: a tab over a wide body.
    a.rect(0, 1, 1, 8, 5, kFolderTab);
    a.rect(0, 1, 5, 15, 14, kFolder);
    // 1 file: a page with lines of text.
    a.rect(1, 3, 1, 13, 15, kInk);
    a.rect(1, 4, 2, 12, 14, kPaper);
    for (int y = 5; y < 13; y += 3) a.rect(1, 5, y, 11, y + 1, kInk);
    // 2 play: a triangle pointing right.
    a.shape(2, kGreen, [](double x, double y) { return x >= 4 && x <= 13 && std::abs(y - 8) <= (13 - x) * 0.6; });
    // 3 stop, 4 pause.
    a.rect(3, 3, 3, 13, 13, kRed);
    a.rect(4, 3, 3, 7, 13, kBlue);
    a.rect(4, 9, 3, 13, 13, kBlue);
    // 5 up, 6 down: a head over a shaft.
    a.shape(5, kInk, [](double x, double y) { return (y >= 2 && y <= 8 && std::abs(x - 8) <= (y - 2)) || (y > 8 && y <= 14 && std::abs(x - 8) <= 1.5); });
    a.shape(6, kInk, [](double x, double y) { return (y >= 8 && y <= 14 && std::abs(x - 8) <= (14 - y)) || (y >= 2 && y < 8 && std::abs(x - 8) <= 1.5); });
    // 7 plus, 8 minus.
    a.rect(7, 2, 7, 14, 9, kInk);
    a.rect(7, 7, 2, 9, 14, kInk);
    a.rect(8, 2, 7, 14, 9, kInk);
    // 9 cross, 10 check mark.
    a.shape(9, kRed, [](double x, double y) { return segment(x, y, 3, 3, 13, 13) < 1.3 || segment(x, y, 13, 3, 3, 13) < 1.3; });
    a.shape(10, kGreen, [](double x, double y) { return segment(x, y, 2, 8, 6, 12) < 1.4 || segment(x, y, 6, 12, 14, 3) < 1.4; });
    // 11 magnifier: a ring and a handle.
    a.shape(11, kInk, [](double x, double y) {
        const double r = std::hypot(x - 6.5, y - 6.5);
        return (r > 3 && r < 4.6) || segment(x, y, 9.5, 9.5, 14, 14) < 1.3;
    });
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: velmora-icons OUTPUT_FOLDER\n");
        return 2;
    }
    std::error_code ec;
    std::filesystem::create_directories(argv[1], ec);
    Atlas atlas;
    draw(atlas);
    const std::string path = std::string(argv[1]) + "/icons.jpg";
    if (!atlas.write(path)) {
        std::fprintf(stderr, "velmora-icons: cannot write %s\n", path.c_str());
        return 1;
    }
    return 0;
}
