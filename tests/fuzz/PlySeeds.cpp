// Writes the seed models of the PLY fuzzer into the folder given: one model
// with scalar and list properties in ASCII and in both binary byte orders.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

namespace {

template <class T>
void put(std::string& out, T v, bool big)
{
    char b[sizeof(T)];
    std::memcpy(b, &v, sizeof(T));
    if (big)
        for (size_t i = 0; i < sizeof(T) / 2; ++i) {
            const char t = b[i];
            b[i] = b[sizeof(T) - 1 - i];
            b[sizeof(T) - 1 - i] = t;
        }
    out.append(b, sizeof(T));
}

std::string model(const char* format)
{
    std::string s = std::string("ply\nformat ") + format +
                    " 1.0\ncomment seed\nelement vertex 3\nproperty float x\nproperty double y\n"
                    "property short s\nproperty uchar c\nelement face 2\nproperty list uchar uint vertex_indices\n"
                    "property int flags\nend_header\n";
    const bool ascii = std::strcmp(format, "ascii") == 0, big = std::strcmp(format, "binary_big_endian") == 0;
    for (int i = 0; i < 3; ++i) {
        if (ascii) {
            s += std::to_string(i * 1.5) + " " + std::to_string(-i * 0.25) + " " + std::to_string(-100 * i) + " " +
                 std::to_string(40 * i) + "\n";
        } else {
            put(s, static_cast<float>(i * 1.5), big), put(s, -i * 0.25, big);
            put(s, static_cast<int16_t>(-100 * i), big), put(s, static_cast<uint8_t>(40 * i), big);
        }
    }
    const uint32_t faces[2][4] = {{0, 1, 2, 0}, {2, 1, 0, 1}};
    for (int f = 0; f < 2; ++f) {
        const int n = f == 0 ? 3 : 4;
        if (ascii) {
            s += std::to_string(n);
            for (int k = 0; k < n; ++k) s += " " + std::to_string(faces[f][k]);
            s += " " + std::to_string(f - 7) + "\n";
        } else {
            put(s, static_cast<uint8_t>(n), big);
            for (int k = 0; k < n; ++k) put(s, faces[f][k], big);
            put(s, static_cast<int32_t>(f - 7), big);
        }
    }
    return s;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: ply_fuzz_seeds FOLDER\n");
        return 2;
    }
    for (const char* format : {"ascii", "binary_little_endian", "binary_big_endian"}) {
        std::ofstream out(std::string(argv[1]) + "/" + format + ".ply", std::ios::binary | std::ios::trunc);
        const std::string m = model(format);
        out.write(m.data(), static_cast<std::streamsize>(m.size()));
        if (!out) return 1;
    }
    return 0;
}
