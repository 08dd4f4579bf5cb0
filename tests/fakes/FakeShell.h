#pragma once
// What the shell stands on: defaults in memory, a process that notes what is asked of it, a status
// area whose menu a test opens.

#include "Platform/Application.h"
#include "Platform/StatusItem.h"
#include "Platform/UserDefaults.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace mnemora::test {

struct FakeDefaults : UserDefaults {
    std::map<std::string, DefaultsValue> values;

    [[nodiscard]] std::optional<DefaultsValue> value(const std::string& key) const override {
        const auto found = values.find(key);
        return found == values.end() ? std::nullopt : std::optional(found->second);
    }
    void set(const std::string& key, DefaultsValue value) override {
        values[key] = std::move(value);
    }
};

struct FakeApplication : Application {
    std::string path = "/opt/mnemora";
    bool starts = true;
    std::vector<std::string> calls; // in order

    [[nodiscard]] std::string bundlePath() override { return path; }
    bool startDetached(const std::string& program,
                       const std::vector<std::string>& arguments) override {
        auto call = program;
        for (const auto& argument : arguments)
            call += "|" + argument;
        calls.push_back(call);
        return starts;
    }
    void terminate() override { calls.emplace_back("terminate"); }
};

struct FakeStatusArea : StatusArea {
    StatusItemContent content;
    bool recording = false;
    int menusShown = 0;

    std::unique_ptr<StatusItem> add(StatusItemContent added) override {
        struct Item : StatusItem {
            explicit Item(FakeStatusArea& owner) : area(owner) {}
            void setRecording(bool recording) override { area.recording = recording; }
            void showMenu() override { ++area.menusShown; }
            FakeStatusArea& area;
        };
        content = std::move(added);
        return std::make_unique<Item>(*this);
    }
    /// The texts of the menu as it opens now; separators are "-", plain texts in brackets.
    [[nodiscard]] std::vector<std::string> open() const {
        std::vector<std::string> texts;
        for (const auto& item : content.menuNeedsUpdate())
            texts.push_back(item.isSeparator   ? "-"
                            : item.isEnabled() ? item.title
                                               : "[" + item.title + "]");
        return texts;
    }
    /// Opens the menu and chooses the item that begins so; false when there is none.
    [[nodiscard]] bool choose(const std::string& beginning) const {
        for (const auto& item : content.menuNeedsUpdate())
            if (item.isEnabled() && item.title.starts_with(beginning)) {
                item.action();
                return true;
            }
        return false;
    }
};

} // namespace mnemora::test
