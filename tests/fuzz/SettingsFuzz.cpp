// Fuzz target: what the settings file's reader accepts is written and read back unchanged.

#include "Platform/UserDefaults.h"
#include "fuzz/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto values = mnemora::parseDefaults({reinterpret_cast<const char*>(data), size});
    if (!values)
        return 0;
    const auto text = mnemora::formatDefaults(*values);
    if (text.size() <= mnemora::maxDefaultsBytes)
        mnemora::fuzz::require(mnemora::parseDefaults(text) == values);
    return 0;
}
