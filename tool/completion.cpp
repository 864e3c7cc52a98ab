#include "tool/completion.h"

#include "tool/error.h"

#include <fmt/format.h>

#include <utility>

namespace yfs::tool {

namespace {

std::vector<const verb_word*> all_verbs(const verb_word& root)
{
    std::vector<const verb_word*> list = {&root};
    for (std::size_t i = 0; i < list.size(); ++i) {
        for (const verb_word& verb : list[i]->verbs) list.push_back(&verb);
    }
    return list;
}

// Paths of all verbs below the root, each in quotes.
std::string quoted_paths(const verb_word& root)
{
    std::string text;
    for (const verb_word* verb : all_verbs(root)) {
        if (!verb->path.empty()) text += fmt::format(" '{}'", verb->path);
    }
    return text;
}

// For '...' in any of the shells.
std::string in_quotes(std::string_view text)
{
    std::string out = "'";
    for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string option_names(const verb_word& verb)
{
    std::string text;
    for (const option_word& option : verb.options)
        text.append(" ").append(fmt::format("{}", fmt::join(option.names, " ")));
    return text;
}

std::string verb_names(const verb_word& verb)
{
    std::string text;
    for (const verb_word& sub : verb.verbs) text.append(" ").append(sub.name);
    return text;
}

std::string bash_script(const verb_word& root)
{
    std::string text = "# Completion of yfs for bash.\n_yfs()\n{\n"
                       "    local current=${COMP_WORDS[COMP_CWORD]} verb='' word i verbs='' options='' stored=''\n"
                       "    local -A known=()\n"
                       "    local -a from=()\n";
    text += fmt::format("    for word in{}; do known[$word]=1; done\n", quoted_paths(root));
    text += "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
            "        case ${COMP_WORDS[i - 1]} in --set | -i | --image) from+=(\"${COMP_WORDS[i - 1]}\" "
            "\"${COMP_WORDS[i]}\") ;; esac\n"
            "        word=\"${verb:+$verb }${COMP_WORDS[i]}\"\n"
            "        [ -n \"${known[$word]}\" ] && verb=$word\n"
            "    done\n"
            "    case $verb in\n";
    for (const verb_word* verb : all_verbs(root)) {
        text += fmt::format("    '{}') verbs='{}' options='{}'{} ;;\n", verb->path, verb_names(*verb),
                            option_names(*verb), verb->takes_stored_path ? " stored=1" : "");
    }
    text += "    esac\n"
            "    case ${COMP_WORDS[COMP_CWORD - 1]} in\n"
            "    --set | -i | --image | --ftbl | -o | --output) verbs='' stored='' ;;\n"
            "    esac\n"
            "    if [[ $current == -* ]]; then\n"
            "        COMPREPLY=($(compgen -W \"$options\" -- \"$current\"))\n"
            "    elif [ -n \"$verbs\" ]; then\n"
            "        COMPREPLY=($(compgen -W \"$verbs\" -- \"$current\"))\n"
            "    else\n"
            "        COMPREPLY=($(compgen -f -- \"$current\"))\n"
            "        [ -z \"$stored\" ] && return\n"
            "        stored=$(yfs ls \"${from[@]}\" 2>/dev/null)\n"
            "        COMPREPLY+=($(compgen -W \"$stored ${stored//\\/home\\//}\" -- \"$current\"))\n"
            "    fi\n"
            "}\n"
            "complete -o filenames -F _yfs yfs\n";
    return text;
}

// "name:help" for _describe.
std::string described(std::string_view name, std::string_view help)
{
    std::string text;
    for (const char c : name) text += c == ':' ? std::string("\\:") : std::string(1, c);
    return in_quotes(fmt::format("{}:{}", text, help));
}

std::string zsh_script(const verb_word& root)
{
    std::string text = "#compdef yfs\n# Completion of yfs for zsh.\n_yfs()\n{\n"
                       "    local verb='' word candidate stored=''\n"
                       "    local -a known verbs options\n";
    text += fmt::format("    known=({} )\n", quoted_paths(root));
    text += "    for word in ${words[2,CURRENT-1]}; do\n"
            "        candidate=\"${verb:+$verb }$word\"\n"
            "        (( ${known[(Ie)$candidate]} )) && verb=$candidate\n"
            "    done\n"
            "    case $verb in\n";
    for (const verb_word* verb : all_verbs(root)) {
        text += fmt::format("    ({})\n", in_quotes(verb->path));
        text += "        verbs=(";
        for (const verb_word& sub : verb->verbs) text.append(" ").append(described(sub.name, sub.help));
        text += " )\n        options=(";
        for (const option_word& option : verb->options) {
            for (const std::string& name : option.names) text.append(" ").append(described(name, option.help));
        }
        text += fmt::format(" )\n{}        ;;\n", verb->takes_stored_path ? "        stored=1\n" : "");
    }
    text += "    esac\n"
            "    if [[ $PREFIX == -* ]]; then\n"
            "        _describe option options\n"
            "    elif (( $#verbs )); then\n"
            "        _describe verb verbs\n"
            "    else\n"
            "        local -a paths=(${(f)\"$(yfs ls 2>/dev/null)\"})\n"
            "        [[ -n $stored ]] && compadd -- $paths ${paths#/home/}\n"
            "        _files\n"
            "    fi\n"
            "}\n"
            "_yfs \"$@\"\n";
    return text;
}

std::string fish_option(const option_word& option)
{
    std::string text;
    for (const std::string& name : option.names)
        text += name.starts_with("--") ? fmt::format(" -l {}", name.substr(2)) : fmt::format(" -s {}", name.substr(1));
    if (option.takes_value) text += " -r";
    return text + fmt::format(" -d {}", in_quotes(option.help));
}

std::string fish_script(const verb_word& root)
{
    std::string text = "# Completion of yfs for fish.\n";
    text += fmt::format("set -g __yfs_verbs{}\n", quoted_paths(root));
    text += "function __yfs_at\n"
            "    set -l verb\n"
            "    for word in (commandline -opc)[2..-1]\n"
            "        set -l candidate (string trim \"$verb $word\")\n"
            "        contains -- $candidate $__yfs_verbs; and set verb $candidate\n"
            "    end\n"
            "    test \"$verb\" = \"$argv[1]\"\n"
            "end\n";
    for (const verb_word* verb : all_verbs(root)) {
        const std::string start =
            fmt::format("complete -c yfs -n {}", in_quotes(fmt::format("__yfs_at \"{}\"", verb->path)));
        for (const verb_word& sub : verb->verbs)
            text += fmt::format("{} -f -a {} -d {}\n", start, sub.name, in_quotes(sub.help));
        for (const option_word& option : verb->options) text += start + fish_option(option) + "\n";
        if (verb->takes_stored_path) text += start + " -a '(yfs ls 2>/dev/null)'\n";
    }
    return text;
}

} // namespace

std::string completion_script(const verb_word& root, std::string_view shell)
{
    if (shell == "bash") return bash_script(root);
    if (shell == "zsh") return zsh_script(root);
    if (shell == "fish") return fish_script(root);
    throw failure(fault::usage, fmt::format("no completion for '{}'", shell), "there is one for bash, zsh and fish");
}

} // namespace yfs::tool
