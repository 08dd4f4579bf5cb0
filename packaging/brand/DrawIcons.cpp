// Writes the application icon in every size that the icon theme wants, at build time.
//
// Usage: draw-icons FOLDER: FOLDER/share/mnemora/AppIcon.png and FOLDER/share/icons/hicolor/...

#include "Linux/Desktop/BrandImages.h"

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

bool save(int pixels, const fs::path& file) {
    std::error_code failed;
    fs::create_directories(file.parent_path(), failed);
    return mnemora::desktop::drawApplicationIcon(pixels).save(
        QString::fromStdString(file.string()));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("Usage: draw-icons FOLDER\n", stderr);
        return 2;
    }
    const fs::path share = fs::path(argv[1]) / "share";
    bool all = save(512, share / "mnemora/AppIcon.png");
    for (const int pixels : {16, 22, 24, 32, 48, 64, 128, 256, 512}) {
        const std::string size = std::to_string(pixels) + "x" + std::to_string(pixels);
        all = save(pixels, share / "icons/hicolor" / size / "apps/app.mnemora.Mnemora.png") && all;
    }
    return all ? 0 : 1;
}
