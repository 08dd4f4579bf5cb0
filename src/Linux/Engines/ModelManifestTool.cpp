// Build-time tool: writes the manifest of the files given.
//     model-manifest OUTPUT [NAME=VALUE ...] -- FILE ...

#include "Linux/Engines/ModelManifest.h"

#include <cstdio>
#include <fstream>
#include <string>

namespace {

bool readProperties(int count, char** words, int& at, mnemora::ModelManifest& manifest) {
    for (; at < count; ++at) {
        const std::string word = words[at];
        if (word == "--") {
            ++at;
            return true;
        }
        const auto equals = word.find('=');
        if (equals == std::string::npos)
            return false;
        manifest.properties[word.substr(0, equals)] = word.substr(equals + 1);
    }
    return false;
}

} // namespace

int main(int count, char** words) {
    mnemora::ModelManifest manifest;
    int at = 2;
    if (!readProperties(count, words, at, manifest)) {
        std::fputs("usage: model-manifest OUTPUT [NAME=VALUE ...] -- FILE ...\n", stderr);
        return 2;
    }
    for (; at < count; ++at) {
        auto file = mnemora::ModelManifest::describe(words[at]);
        if (!file) {
            std::fprintf(stderr, "model-manifest: can't read %s\n", words[at]);
            return 1;
        }
        manifest.files.push_back(std::move(*file));
    }
    const auto text = manifest.text();
    if (mnemora::ModelManifest::parse(text) != manifest) {
        std::fputs("model-manifest: a name or value can't be written in one line\n", stderr);
        return 1;
    }
    std::ofstream output(words[1], std::ios::binary);
    output << text;
    return output.flush() ? 0 : 1;
}
