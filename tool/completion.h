// Completion scripts for shells, made from the grammar itself: they name exactly the verbs and options that there are.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace yfs::tool {

struct option_word {
    std::vector<std::string> names; // "-n", "--dry-run"
    std::string help;               // one line
    bool takes_value = false;
};

// A verb, or the program itself at the root.
struct verb_word {
    std::string path; // "nvar set"; empty at the root
    std::string name;
    std::string help;
    std::vector<option_word> options;
    bool takes_stored_path = false; // its first argument is a path of the file table
    std::vector<verb_word> verbs;
};

inline constexpr std::string_view shells[] = {"bash", "zsh", "fish"};

// Fails with usage for any other shell.
std::string completion_script(const verb_word& root, std::string_view shell);

} // namespace yfs::tool
