// batch: several edits from standard input, all or none. A line is an edit as on the command line, without "yfs":
//   put net/uplink new.txt
//   nvar set net/name 'utf8:bench 4'
#include "tool/edits.h"
#include "tool/error.h"
#include "tool/files.h"
#include "tool/grammar.h"
#include "tool/text.h"
#include "tool/verbs.h"

#include <fmt/format.h>

#include <sstream>

namespace yfs::tool {

namespace {

// Words between blanks; quotes of either kind keep blanks, and nothing else is special.
std::optional<std::vector<std::string>> split_words(std::string_view line)
{
    std::vector<std::string> words;
    bool in_word = false;
    char quote = 0;
    for (const char c : line) {
        if (quote != 0 && c == quote) {
            quote = 0;
        } else if (quote == 0 && (c == '\'' || c == '"')) {
            quote = c;
            if (!in_word) words.emplace_back();
            in_word = true;
        } else if (quote == 0 && (c == ' ' || c == '\t' || c == '\r')) {
            in_word = false;
        } else {
            if (!in_word) words.emplace_back();
            in_word = true;
            words.back() += c;
        }
    }
    if (quote != 0) return {};
    return words;
}

command parse_line(std::vector<std::string> words)
{
    std::string program = "yfs";
    std::vector<char*> argv = {program.data()};
    for (std::string& word : words) argv.push_back(word.data());
    command line = parse_command_line(static_cast<int>(argv.size()), argv.data());
    const options& given = line.given;
    const bool elsewhere = !given.set.empty() || !given.images.empty() || !given.ftbl.empty() || given.sku ||
                           given.change.dry_run || given.change.backup || !given.change.output.empty();
    if (line.run != make_change || given.how == batch) throw failure(fault::usage, "not an edit");
    if (elsewhere) throw failure(fault::usage, "options about images and saving belong to 'yfs batch' itself");
    const bool reads_file = given.how == put_file || given.how == import_values;
    if ((reads_file && given.source_file == "-") || (given.how == set_value && given.value == "-"))
        throw failure(fault::usage, "standard input is the script; name a file");
    return line;
}

} // namespace

std::string batch(session& set, const options& given, changes& done)
{
    const bytes script = read_file(given.source_file);
    std::istringstream lines(std::string(script.begin(), script.end()));
    std::size_t number = 0, edits = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        try {
            const auto words = split_words(line);
            if (!words) throw failure(fault::usage, "a quote isn't closed");
            if (words->empty() || words->front().starts_with('#')) continue;
            const command edit_line = parse_line(*words);
            edit_line.given.how(set, edit_line.given, done);
            ++edits;
        } catch (const failure& error) {
            throw failure(error.which(), fmt::format("line {}: {}; nothing was saved", number, error.what()),
                          error.hint());
        }
    }
    return count_of(edits, "edit");
}

} // namespace yfs::tool
