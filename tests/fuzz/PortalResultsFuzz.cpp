// Fuzz target: the results of a portal's answers, as bytes of a dictionary that nobody has checked.

#include "Linux/Screen/PortalResults.h"
#include "fuzz/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace mnemora;
    const desktop::GValueRef results(g_variant_ref_sink(
        g_variant_new_from_data(G_VARIANT_TYPE_VARDICT, data, size, FALSE, nullptr, nullptr)));
    for (const char* name : {"session_handle", "restore_token"})
        fuzz::require(g_utf8_validate(portal::textOf(results.get(), name).c_str(), -1, nullptr) !=
                      0);
    fuzz::require(portal::nodeOf(results.get()) != 0xFFFFFFFFU);
    return 0;
}
