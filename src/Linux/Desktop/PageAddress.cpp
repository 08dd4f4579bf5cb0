#include "Linux/Desktop/PageAddress.h"

#include "Linux/Desktop/ApplicationTable.h"

namespace mnemora::desktop {

std::string_view hostOf(std::string_view address) {
    constexpr std::string_view mark = "://";
    const auto scheme = address.find(mark);
    if (scheme == std::string_view::npos)
        return {};
    address.remove_prefix(scheme + mark.size());
    address = address.substr(0, address.find_first_of("/?#\\"));
    address.remove_prefix(address.rfind('@') + 1); // from npos, too
    address = address.substr(0, address.find(':'));
    return address.substr(0, address.find_last_not_of('.') + 1);
}

bool isConcealedPage(std::string_view address) {
    const TableRow* row = rowAtHost(hostOf(address));
    return row != nullptr && isConcealed(*row);
}

} // namespace mnemora::desktop
