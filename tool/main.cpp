// The grammar of the command line, and the end of every error: a text on standard error and an exit status.
#include "tool/error.h"
#include "tool/output.h"
#include "tool/verbs.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace yfs::tool;

using verb = exit_status (*)(const options&);

constexpr const char* about =
    "Reads and edits the file-system partitions and configuration values of a firmware image.\n"
    "\n"
    "A set file, yfs.json, says which files belong together. It is looked for in the working\n"
    "directory, or named with --set. 'yfs sample DIR' makes a set to try everything on:\n"
    "\n"
    "  yfs sample demo && cd demo          a file table, velor.cfg, zonc.cfg and a volume\n"
    "  yfs nvar ls                         every configuration value, by name\n"
    "  yfs nvar set net/uplink utf8:lte0   change one of them\n"
    "  yfs ls -l                           the files in the volume\n";

constexpr const char* about_all =
    "Paths are those of the file table; /home/ in front may be left out, and afs#17 or efs#3 names a\n"
    "file by its number. A change is made on a copy, which replaces the old file in one step: a failed\n"
    "or interrupted command leaves the file as it was.\n"
    "\n"
    "Exit status: 0 done, 1 not there, 4 damaged image or table, 8 failed, 16 wrong usage.\n"
    "Keys of yfs.json: sku, ftbl, velor, and where the set has them zonc, yfs, efs. Paths count from\n"
    "its folder.";

constexpr const char* about_nvar =
    "A value in force comes from velor.cfg (the defaults), from zonc.cfg (before the defaults) and,\n"
    "where the volume is deployed, from the stored files (before both). 'set' writes every value back\n"
    "into a deployed volume and builds a new zonc.cfg that holds them all.";

constexpr const char* about_nvar_ls =
    "Flags: w can be set; t its stored file ends in a tail behind the value; u is not taken\n"
    "from the volume.";

constexpr const char* about_nvar_set =
    "The value is checked against its limit before anything runs. Images are saved before zonc.cfg,\n"
    "whose partition header is kept. A set without zonc.cfg gets one, and its key in the set file.\n"
    "\n"
    "  yfs nvar set net/uplink utf8:lte0\n"
    "  yfs nvar set net/mac 'hex:02 00 5e 10 00 17'\n"
    "  yfs nvar set boot/splash logo.bin";

constexpr const char* about_put =
    "The file becomes these contents. What the file table allows is the limit, and the tail of files\n"
    "that carry one comes on top. Contents that are there already touch no file.";

constexpr const char* about_check =
    "A fault: the image doesn't open, or something in use is lost or wrong. A warning: it opens and\n"
    "reads well, but no orderly history makes this. Exit status 4 if there is a fault.";

// Builds the grammar: each verb fills the options and leaves what to run in `chosen`.
class grammar {
public:
    grammar(options& given, verb& chosen) : given_(given), chosen_(chosen), app_(about, "yfs")
    {
        app_.get_formatter()->label("SUBCOMMAND", "VERB");
        app_.get_formatter()->label("REQUIRED", "");
        app_.require_subcommand(0, 1);
        app_.set_version_flag("--version", "yfs " YFS_VERSION, "Print the version and exit");
        add_set(app_);
        add_files();
        add_values();
        add(app_, "sample", "Make a complete set to try the tool on", make_sample)
            .add_option("DIR", given_.folder, "A folder for it, made if it isn't there")
            ->required()
            ->type_name("");
        app_.footer(about_all); // last: verbs would inherit it
    }

    CLI::App& app() { return app_; }

private:
    void add_set(CLI::App& sub)
    {
        sub.set_help_flag("-h,--help", "Print this help and exit");
        sub.add_option("--set", given_.set, "The set file, or the folder that holds yfs.json")->type_name("FILE");
    }
    CLI::App& add(CLI::App& parent, const char* name, const char* help, verb run)
    {
        CLI::App& sub = *parent.add_subcommand(name, help)->group("Verbs");
        add_set(sub);
        if (run != nullptr) sub.callback([this, run] { chosen_ = run; });
        return sub;
    }
    void add_json(CLI::App& sub) { sub.add_flag("--json", given_.json, "One JSON document instead of text"); }
    void add_force(CLI::App& sub) { sub.add_flag("--force", given_.force, "Binary data to a terminal, too"); }
    void add_path(CLI::App& sub)
    {
        sub.add_option("PATH", given_.path, "As in the file table: /home/net/uplink, or net/uplink")
            ->required()
            ->type_name("");
    }

    void add_files()
    {
        add_json(add(app_, "info", "What belongs to the set, and what state it is in", info));

        CLI::App& ls = add(app_, "ls", "List the files stored in the images", list_files);
        ls.add_flag("-l", given_.long_list, "With size, limit, attributes and place");
        add_json(ls);

        CLI::App& cat_verb = add(app_, "cat", "Write a stored file to standard output", cat);
        add_path(cat_verb);
        add_force(cat_verb);

        CLI::App& put_verb = add(app_, "put", "Store a file in the volume, in place of the old one", put);
        put_verb.footer(about_put);
        add_path(put_verb);
        put_verb.add_option("FILE", given_.source, "Its contents; standard input if absent or -")->type_name("");

        add_path(add(app_, "rm", "Remove a file from the volume", remove));

        CLI::App& check_verb = add(app_, "check", "Find every fault in the images, without mounting them", check);
        check_verb.footer(about_check);
        check_verb.add_option("IMAGE", given_.images, "AFS images; without one, the images of the set")->type_name("");
        check_verb.add_flag("-l", given_.long_list, "What is no fault too: the traces of power cuts and of use");
        add_json(check_verb);

        add(app_, "explain", "What a finding of 'check' means, where it comes from, what helps", explain)
            .add_option("ID", given_.path, "As 'check' prints it: chain-loop")
            ->required()
            ->type_name("");
    }

    void add_values()
    {
        CLI::App& nvar = add(app_, "nvar", "Configuration values, by name: ls, get, set", nullptr);

        nvar.require_subcommand(0, 1);
        CLI::App& ls = add(nvar, "ls", "List every value in force", list_values);
        ls.footer(about_nvar_ls);
        add_json(ls);

        CLI::App& get = add(nvar, "get", "Write one value to standard output", get_value);
        add_path(get);
        add_json(get);
        add_force(get);

        CLI::App& set = add(nvar, "set", "Change one value", set_value);
        set.footer(about_nvar_set);
        add_path(set);
        set.add_option("VALUE", given_.value, "utf8:TEXT, hex:BYTES, or a file that holds it (- for standard input)")
            ->required()
            ->type_name("");
        set.add_flag("--drop-unknown", given_.drop_unknown,
                     "Let go of records of zonc.cfg that the file table doesn't know");
        nvar.footer(about_nvar);
    }

    options& given_;
    verb& chosen_;
    CLI::App app_;
};

exit_status run(int argc, char** argv)
{
    options given;
    verb chosen = nullptr;
    grammar words(given, chosen);
    try {
        words.app().parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        print(words.app().help() + "\n");
        return exit_status::done;
    } catch (const CLI::CallForVersion& version) {
        print(std::string(version.what()) + "\n");
        return exit_status::done;
    } catch (const CLI::ParseError& error) {
        throw failure(fault::usage, error.what(), "'yfs --help' and 'yfs VERB --help' tell what there is");
    }
    if (chosen == nullptr) throw failure(fault::usage, "no verb", "'yfs --help' lists the verbs");
    return chosen(given);
}

// A caller may have closed any of the three standard descriptors. Left closed, the next file opened would take its
// number, and what is printed would go there.
void hold_standard_descriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) < 0) ::open("/dev/null", O_RDONLY); // for reading: a write to it is still told
    }
}

} // namespace

int main(int argc, char** argv)
{
    hold_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN); // a reader that goes away ends the tool quietly, and not in the middle of a save
    exit_status status = exit_status::done;
    try {
        status = run(argc, argv);
    } catch (const output_closed&) {
        return static_cast<int>(status);
    } catch (const failure& error) {
        print_error(describe(error));
        status = status_of(error.which());
    } catch (const std::exception& error) {
        const failure unforeseen(fault::library, error.what());
        print_error(describe(unforeseen));
        status = status_of(unforeseen.which());
    }
    return static_cast<int>(status);
}
