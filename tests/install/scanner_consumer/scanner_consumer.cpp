// Runs a picture through an installed scancode's Scanner:
//   scanner_consumer PICTURE
// Prints the boxes kept; exits 0 when the library started and kept one.
#include <scancode/scanner.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: scanner_consumer PICTURE\n");
        return 2;
    }
    try {
        scancode::Scanner scanner;
        const scancode::Result result = scanner.Scan(scancode::ReadPicture(argv[1]));
        for (const scancode::Box& b : result.boxes) {
            printf("scanner_consumer: box %.0f,%.0f %.0fx%.0f%s\n", b.rect.x, b.rect.y,
                   b.rect.width, b.rect.height, b.listed ? "" : " (edge band)");
        }
        return result.listedCount() > 0 ? 0 : 1;
    } catch (const scancode::Error& e) {
        fprintf(stderr, "scanner_consumer: %s\n", e.what());
        return 1;
    }
}
