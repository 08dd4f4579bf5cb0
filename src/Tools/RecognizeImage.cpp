// Prints the text that the program would see in pictures, and what it costs to see it.
//     recognize-image FILE.png...

#include "Linux/Engines/EngineTextRecognizer.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <png.h>

namespace {

std::optional<mnemora::Image> readPicture(const char* path) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&png, path) == 0)
        return std::nullopt;
    png.format = PNG_FORMAT_BGRA;
    auto pixels = std::make_shared<std::vector<std::uint8_t>>(PNG_IMAGE_SIZE(png));
    // Transparent parts lie on white, as most viewers show them.
    const png_color white{255, 255, 255};
    if (png_image_finish_read(&png, &white, pixels->data(), 0, nullptr) == 0)
        return std::nullopt;
    return mnemora::Image{.width = static_cast<int>(png.width),
                          .height = static_cast<int>(png.height),
                          .stride = PNG_IMAGE_ROW_STRIDE(png),
                          .pixels = std::move(pixels)};
}

/// Processor seconds of the recogniser's child so far, its start included.
double childSeconds(const mnemora::EngineTextRecognizer& recognizer) {
    const auto child = recognizer.child();
    const auto time = child ? mnemora::engines::processorTime(*child) : std::nullopt;
    return time ? std::chrono::duration<double>(*time).count() : 0;
}

} // namespace

int main(int count, char** words) {
    if (count < 2) {
        std::fputs("usage: recognize-image FILE.png...\n", stderr);
        return EXIT_FAILURE;
    }
    mnemora::EngineTextRecognizer recognizer(mnemora::EngineSettings::ofInstallation());
    int status = EXIT_SUCCESS;
    for (int i = 1; i < count; ++i) {
        const auto picture = readPicture(words[i]);
        if (!picture) {
            std::fprintf(stderr, "%s: no PNG picture\n", words[i]);
            status = EXIT_FAILURE;
            continue;
        }
        const double before = childSeconds(recognizer);
        const auto lines = recognizer.recognize(*picture);
        if (!recognizer.child())
            status = EXIT_FAILURE;
        for (const auto& line : lines)
            if (line.bestCandidate)
                std::printf("%s\n", line.bestCandidate->c_str());
        std::fflush(stdout);
        std::fprintf(stderr, "%s: %zu lines, %.2f CPU seconds%s\n", words[i], lines.size(),
                     childSeconds(recognizer) - before,
                     before == 0 ? " with loading the model" : "");
    }
    return status;
}
