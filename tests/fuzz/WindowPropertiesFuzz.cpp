// Fuzz target: the texts of a window's properties, in each encoding that they come in.

#include "Linux/X11/PropertyText.h"
#include "Text/Encoding.h"
#include "fuzz/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace mnemora;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto latin = x11::fromLatin1(bytes);
    fuzz::require(repairedUtf8(latin) == latin);
    const auto title = cleanText(x11::fromCompoundText(bytes));
    fuzz::require(cleanText(title) == title && title.find('\0') == std::string::npos);
    const auto [instance, name] = x11::instanceAndClass(bytes);
    fuzz::require(cleanText(instance) == instance && cleanText(name) == name);
    return 0;
}
