#pragma once
// What the address of a page says of whose page it is.

#include <string_view>

namespace mnemora::desktop {

/// The host in an address as browsers give it, without user, port and final dot; empty where there
/// is none.
[[nodiscard]] std::string_view hostOf(std::string_view address);

/// Whether the page belongs to an application whose content is never read, as a password manager's
/// vault on the web does.
[[nodiscard]] bool isConcealedPage(std::string_view address);

} // namespace mnemora::desktop
