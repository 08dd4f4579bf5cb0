#include "SampleTexts.h"

namespace mnemora::bench {

const std::vector<std::string>& sentences() {
    static const std::vector<std::string> texts{
        "The delivery for the kitchen was moved to Thursday between 9:30 and 11:00.",
        "Could you send me the signed contract before the end of the week?",
        "We measured the response times again and the median fell from 84 ms to 61 ms.",
        "Nobody has touched the staging server since last Monday, as far as I know.",
        "Please bring the printed agenda, the projector is broken again.",
        "Our budget for travel is $12,450.00, of which roughly a third is spent.",
        "The second chapter needs a clearer introduction and fewer footnotes.",
        "I booked two rooms at the harbour hotel from March 14 until March 17.",
        "If the tests fail once more, roll back to version 2.8.1 and tell the others.",
        "Thanks for the quick review, I have addressed every comment but one.",
        "The train leaves at 07:42 from platform 6 and arrives shortly after noon.",
        "A new colleague starts in October and will share the office upstairs.",
        "Invoices older than ninety days are handed to the accounting department.",
        "The garden looks wonderful this spring, the tulips came up everywhere.",
        "Remember that the library closes earlier on Saturdays during summer.",
        "He explained how the sensor drifts when the temperature drops below zero.",
        "Most of the readers arrive through the newsletter, not by searching.",
        "Let's postpone the decision until the figures for August are complete.",
        "The upload stopped at 73% because the disk quota was exceeded.",
        "She recommended a book about the history of maps and early navigation.",
        "Please answer by email; the phone line in the workshop is unreliable.",
        "The committee approved the proposal with eleven votes against four.",
        "Water the plants on the balcony twice a week, but not at midday.",
        "Version control would have saved us an entire afternoon of guessing.",
        "The recording of yesterday's lecture is available until Friday evening.",
        "Parking is free behind the building after six o'clock.",
        "I will call the insurance company tomorrow and ask about form B-217.",
        "Our neighbours are moving to Lisbon and sell most of their furniture.",
        "The quarterly report contains three charts that nobody can explain.",
        "Bread, butter, apples, coffee filters, washing powder and light bulbs.",
        "Every measurement was repeated five times under the same conditions.",
        "The museum shows photographs from the harbour between 1890 and 1935.",
    };
    return texts;
}

const std::vector<std::string>& codeLines() {
    static const std::vector<std::string> texts{
        "#include <algorithm>",
        "#include <unordered_map>",
        "namespace inventory {",
        "struct Article {",
        "    std::string name;",
        "    double price = 0.0;",
        "    int quantity = 0;",
        "};",
        "// Sums what lies on the shelves, without reserved articles.",
        "double totalValue(const std::vector<Article>& articles) {",
        "    double total = 0.0;",
        "    for (const auto& article : articles)",
        "        total += article.price * article.quantity;",
        "    return total;",
        "}",
        "std::optional<Article> findByName(std::string_view wanted) {",
        "    const auto found = index.find(std::string(wanted));",
        "    if (found == index.end())",
        "        return std::nullopt;",
        "    return articles[found->second];",
        "}",
        "bool Warehouse::reserve(const Order& order, int amount) {",
        "    std::lock_guard guard(mutex);",
        "    auto& entry = reservations[order.number];",
        "    if (entry.amount + amount > available(order.article))",
        "        return false;",
        "    entry.amount += amount;",
        "    notifyObservers(order.number, entry.amount);",
        "    return true;",
        "}",
        "def load_settings(path, defaults=None):",
        "    with open(path, encoding='utf-8') as handle:",
        "        values = json.load(handle)",
        "    merged = dict(defaults or {})",
        "    merged.update(values)",
        "    return merged",
        "class ReportWriter(Writer):",
        "    def finish(self, title: str) -> None:",
        "        self.lines.append(title.upper())",
        "        self.flush()",
        "SELECT customer, sum(amount) FROM orders WHERE year = 2024",
        "GROUP BY customer HAVING sum(amount) > 1000 ORDER BY customer;",
    };
    return texts;
}

const std::vector<std::string>& terminalLines() {
    static const std::vector<std::string> texts{
        "$ git status --short",
        " M src/parser/tokens.cpp",
        " M tests/parser/tokens_test.cpp",
        "?? notes/meeting-2024-05-17.txt",
        "$ cmake --build build --parallel 4",
        "[ 12%] Building CXX object src/CMakeFiles/core.dir/parser.cpp.o",
        "[ 48%] Building CXX object src/CMakeFiles/core.dir/writer.cpp.o",
        "[ 97%] Linking CXX executable bin/reporter",
        "[100%] Built target reporter",
        "$ ls -l documents",
        "-rw-r--r-- 1 anna staff  48213 May 12 09:14 budget.ods",
        "-rw-r--r-- 1 anna staff   1907 May 14 17:52 letter.txt",
        "drwxr-xr-x 4 anna staff   4096 Apr 30 08:03 photographs",
        "$ ping -c 3 printer.local",
        "64 bytes from 192.168.10.45: icmp_seq=1 ttl=64 time=0.412 ms",
        "64 bytes from 192.168.10.45: icmp_seq=2 ttl=64 time=0.388 ms",
        "3 packets transmitted, 3 received, 0% packet loss, time 2041ms",
        "$ df -h /home",
        "Filesystem      Size  Used Avail Use% Mounted on",
        "/dev/nvme0n1p3  412G  287G  104G  74% /home",
        "$ systemctl status cups",
        "Active: active (running) since Tue 2024-05-14 08:01:22 CEST",
        "Main PID: 1432 (cupsd)",
        "$ tail -n 4 /var/log/backup.log",
        "2024-05-16 02:00:03 INFO starting backup of /home/anna",
        "2024-05-16 02:14:47 INFO copied 18422 files, 3.2 GiB",
        "2024-05-16 02:14:48 WARNING skipped 3 unreadable files",
        "2024-05-16 02:14:48 INFO finished in 885 seconds",
        "$ python3 -m pytest tests -q",
        "........................................ [ 61%]",
        "FAILED tests/test_dates.py::test_leap_day - AssertionError",
        "1 failed, 64 passed in 3.41s",
    };
    return texts;
}

const std::vector<std::string>& people() {
    static const std::vector<std::string> texts{
        "Anna Lindqvist", "Marco Bellini",  "Priya Raman",   "Tom Becker",
        "Elena Petrova",  "James Whitaker", "Sofia Duarte",  "Kenji Mori",
        "Laura Hoffmann", "David Okafor",   "Nina Kowalska", "Oliver Stone",
    };
    return texts;
}

} // namespace mnemora::bench
