#include "Linux/Screen/PortalResults.h"

namespace mnemora::portal {
namespace {

constexpr std::uint32_t noNode = 0xFFFFFFFF; // as PipeWire says it

} // namespace

std::string textOf(GVariant* results, const char* name) {
    const gchar* text = nullptr;
    if (g_variant_lookup(results, name, "&s", &text) ||
        g_variant_lookup(results, name, "&o", &text))
        return text;
    return {};
}

std::optional<std::uint32_t> nodeOf(GVariant* results) {
    guint32 node = noNode;
    const desktop::GValueRef streams(
        g_variant_lookup_value(results, "streams", G_VARIANT_TYPE("a(ua{sv})")));
    if (streams && g_variant_n_children(streams.get()) > 0)
        g_variant_get_child(streams.get(), 0, "(ua{sv})", &node, nullptr);
    return node != noNode ? std::optional<std::uint32_t>(node) : std::nullopt;
}

} // namespace mnemora::portal
