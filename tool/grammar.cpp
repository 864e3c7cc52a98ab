#include "tool/grammar.h"

#include "tool/completion.h"
#include "tool/text.h"
#include "tool/words.h"

#include <CLI/CLI.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace yfs::tool {

namespace {

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
    "Exit status: 0 done, same, clean; 1 no: not there, they differ, or faults were found and repaired;\n"
    "4 damaged image or table; 8 failed; 16 wrong usage; 32 interrupted.\n"
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

constexpr const char* about_map =
    "AFS: a row for each erase unit, with its group (of 122 pages) and how often it was erased, and a column\n"
    "for each two of its slots. EFS: a line for each block. Colour is for terminals; NO_COLOR turns it off.";

constexpr const char* about_extract =
    "Paths become folders below DIR. A part of a path that no file may have as its name, and each byte\n"
    "that isn't printable, is written as %XX, so that no name leads out of DIR.";

constexpr const char* about_repair =
    "A mount and idle work mend what they can. Where that isn't enough, the image is built anew from the\n"
    "files that can be read. If some can't, they are listed and nothing happens, unless --lossy lets them\n"
    "go. Exit status 0: clean before, 1: repaired, 4: it can't be without a loss.";

constexpr const char* about_batch =
    "A line is an edit as on the command line, without yfs; lines that begin with # don't count:\n"
    "\n"
    "  put net/uplink new.txt\n"
    "  nvar set net/name 'utf8:bench 4'";

constexpr const char* about_trials =
    "The edit is written as on the command line and is made on copies; nothing is saved:\n"
    "\n"
    "  yfs trace put net/uplink new.txt\n"
    "  yfs cut --after 7 -o cut.img put net/uplink new.txt\n"
    "  yfs torture nvar set net/name utf8:bench-4";

constexpr const char* about_build =
    "Keys of the set file for it, beside sku, ftbl and velor, which are inputs, and yfs, efs and zonc, which\n"
    "are made:\n"
    "\n"
    "  \"afs\": {\"size\": 131072, \"files\": 128},\n"
    "  \"files\": {\"/home/net/uplink\": \"uplink.txt\", \"afs#40\": \"hex:00ff\"},\n"
    "  \"values\": {\"net/uplink\": \"utf8:wan0\"}\n"
    "\n"
    "The same inputs make the same bytes; files that would not change are left alone.";

constexpr const char* about_check =
    "A fault: the image doesn't open, or something in use is lost or wrong. A warning: it opens and\n"
    "reads well, but no orderly history makes this. Exit status 4 if there is a fault.";

constexpr const char* about_completion =
    "  bash: yfs completion bash > ~/.local/share/bash-completion/completions/yfs\n"
    "  zsh:  yfs completion zsh > a folder of $fpath, as _yfs\n"
    "  fish: yfs completion fish > ~/.config/fish/completions/yfs.fish";

// The verb of that name; null if there is none, and then `known` has those that there are.
CLI::App* find_verb(CLI::App& parent, const std::string& word, std::vector<std::string>& known)
{
    known.clear();
    for (CLI::App* sub : parent.get_subcommands({})) {
        if (sub->get_name() == word) return sub;
        known.push_back(sub->get_name());
    }
    return nullptr;
}

[[noreturn]] void refuse_verb(const std::string& word, const std::vector<std::string>& known)
{
    throw failure(fault::usage, fmt::format("there is no verb '{}'", printable(word)),
                  known.empty() ? std::string("'yfs --help' lists the verbs")
                                : fmt::format("did you mean '{}'? 'yfs --help' lists the verbs", nearest(word, known)));
}

// The grammar as words, for completion.
verb_word words_of(CLI::App& app, const std::string& path)
{
    verb_word out;
    out.path = path;
    out.name = app.get_name();
    out.help = path.empty() ? std::string() : app.get_description();
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) {
            out.takes_stored_path |= option->get_name() == "PATH";
            continue;
        }
        option_word word;
        for (const std::string& name : option->get_snames()) word.names.push_back("-" + name);
        for (const std::string& name : option->get_lnames()) word.names.push_back("--" + name);
        word.help = option->get_description();
        word.takes_value = option->get_items_expected_max() > 0;
        out.options.push_back(std::move(word));
    }
    for (CLI::App* sub : app.get_subcommands({}))
        out.verbs.push_back(words_of(*sub, path.empty() ? sub->get_name() : path + " " + sub->get_name()));
    return out;
}

// Builds the grammar: each verb fills the options and leaves what to run in `chosen`.
class grammar {
public:
    explicit grammar(command& parsed) : parsed_(parsed), given_(parsed.given), app_(about, "yfs")
    {
        app_.get_formatter()->label("SUBCOMMAND", "VERB");
        app_.get_formatter()->label("REQUIRED", "");
        app_.require_subcommand(0, 1);
        app_.set_version_flag("--version", "yfs " YFS_VERSION, "Print the version and exit");
        add_set(app_);
        group_ = "Look";
        add_looks();
        add_pictures();
        add_dumps();
        group_ = "Change";
        add_edits(app_, make_change);
        group_ = "Values";
        add_values();
        group_ = "Make";
        add_makers();
        group_ = "Test";
        add_trials();
        group_ = "Support";
        add_support();
        app_.footer(about_all); // last: verbs would inherit it
    }

    CLI::App& app() { return app_; }

private:
    void add_set(CLI::App& sub)
    {
        sub.set_help_flag("-h,--help", "Print this help and exit");
        sub.add_option("--set", given_.set, "The set file, or the folder that holds yfs.json")->type_name("FILE");
    }
    // For verbs about files: the images may be named, and a file table for them.
    void add_image_options(CLI::App& sub)
    {
        sub.add_option("-i,--image", given_.images, "An image in place of the set's: FILE, FILE@OFFSET+SIZE, or -")
            ->type_name("IMAGE")
            ->expected(1)
            ->take_all()
            ->allow_extra_args(false);
        add_table_options(sub);
    }
    void add_table_options(CLI::App& sub)
    {
        sub.add_option("--ftbl", given_.ftbl, "The file table, in place of the set's")->type_name("FILE");
        sub.add_option("--sku", given_.sku, "The SKU in the file table, in place of the set's")->type_name("N");
    }
    // For verbs about images.
    void add_image_arguments(CLI::App& sub)
    {
        sub.add_option("IMAGE", given_.images, "FILE, FILE@OFFSET+SIZE or -; without one, the images of the set")
            ->type_name("");
        add_table_options(sub);
    }
    void add_change_options(CLI::App& sub)
    {
        sub.add_flag("-n,--dry-run", given_.change.dry_run, "Only say what would change");
        // A flag, so that the word behind it is never taken for the suffix.
        sub.add_flag("--backup{.bak}", given_.change.backup,
                     "Keep the old files beside; --backup=SUFFIX: with this suffix");
        sub.add_option("-o,--output", given_.change.output, "Write into this file or folder, or -, and leave the old")
            ->type_name("FILE");
    }
    CLI::App& add(CLI::App& parent, const char* name, const char* help, verb run)
    {
        CLI::App& sub = *parent.add_subcommand(name, help)->group(group_);
        add_set(sub);
        if (run != nullptr) sub.callback([this, run] { parsed_.run = run; });
        return sub;
    }
    enum class images { any, of_the_set, as_arguments };
    CLI::App& add_edit(CLI::App& parent, verb run, const char* name, const char* help, edit how,
                       images from = images::any)
    {
        CLI::App& sub = add(parent, name, help, nullptr);
        sub.callback([this, run, how] {
            parsed_.run = run;
            given_.how = how;
        });
        if (from == images::any) add_image_options(sub);
        if (from == images::as_arguments) add_image_arguments(sub);
        if (run == make_change) add_change_options(sub);
        if (run == trace || run == torture) add_json(sub);
        return sub;
    }
    CLI::Option& add_json(CLI::App& sub)
    {
        return *sub.add_flag("--json", given_.json, "One JSON document instead of text");
    }
    void add_force(CLI::App& sub, const char* help) { sub.add_flag("--force", given_.force, help); }
    void add_drop_unknown(CLI::App& sub)
    {
        sub.add_flag("--drop-unknown", given_.drop_unknown,
                     "Let go of records of zonc.cfg that the file table doesn't know");
    }
    void add_folder(CLI::App& sub, const char* help)
    {
        sub.add_option("DIR", given_.folder, help)->required()->type_name("");
    }
    void add_path(CLI::App& sub)
    {
        sub.add_option("PATH", given_.path, "As in the file table: /home/net/uplink, or net/uplink")
            ->required()
            ->type_name("");
    }

    void add_looks()
    {
        CLI::App& info_verb = add(app_, "info", "What belongs to the set, and what state it is in", info);
        add_image_arguments(info_verb);
        add_json(info_verb);

        CLI::App& ls = add(app_, "ls", "List the files stored in the images", list_files);
        ls.add_flag("-l", given_.long_list, "With size, limit, attributes and place");
        add_image_options(ls);
        add_json(ls);

        CLI::App& stat = add(app_, "stat", "All about one file, down to its places on the flash", stat_file);
        add_path(stat);
        add_image_options(stat);
        add_json(stat);

        CLI::App& cat_verb = add(app_, "cat", "Write a stored file to standard output", cat);
        add_path(cat_verb);
        add_image_options(cat_verb);
        add_force(cat_verb, "Binary data to a terminal, too");

        CLI::App& extract_verb = add(app_, "extract", "Every stored file into a folder", extract);
        extract_verb.footer(about_extract);
        add_folder(extract_verb, "A folder for them, made if it isn't there");
        add_image_options(extract_verb);
        add_force(extract_verb, "Replace files that are there already");

        CLI::App& check_verb = add(app_, "check", "Find every fault in the images, without mounting them", check);
        check_verb.footer(about_check);
        add_image_arguments(check_verb);
        check_verb.add_flag("-l", given_.long_list, "What is no fault too: the traces of power cuts and of use");
        add_json(check_verb);
    }

    void add_pictures()
    {
        CLI::App& map_verb = add(app_, "map", "What every part of the images is for", map);
        map_verb.footer(about_map);
        add_image_arguments(map_verb);
        map_verb.add_option("--file", given_.path, "Mark the chunks of this file")->type_name("PATH");
        map_verb.add_flag("--wear", given_.wear, "How often each unit was erased, in place of its slots");
        map_verb.add_option("--eu", given_.unit, "One erase unit, slot by slot")->type_name("N");
        map_verb.add_flag("--ascii", given_.ascii, "Plain characters, no colour");
        map_verb.add_option("-o,--output", given_.change.output, "Draw a picture: FILE.svg or FILE.html")
            ->type_name("FILE");
        add_json(map_verb);

        CLI::App& df = add(app_, "df", "How full the images are, and which files take most", disk_free);
        add_image_arguments(df);
        add_json(df);

        CLI::App& diff = add(app_, "diff", "Compare two images, or two sets", diff_images);
        diff.footer(
            "Of two sets the tables are compared too, byte for byte. Exit status 0 if they are the same, 1 if they\n"
            "differ.");
        diff.add_option("SIDES", given_.inputs, "Two images, or two set files or folders of sets")
            ->required()
            ->expected(2)
            ->type_name("");
        CLI::Option* const contents =
            diff.add_flag("--contents", given_.contents, "Only what the files hold, not the flash under them");
        CLI::Option* const values = diff.add_flag("--values", given_.values, "Only the values in force, of two sets");
        CLI::Option* const picture = diff.add_option("-o,--output", given_.change.output,
                                                     "Draw the second with all that differs: FILE.svg or FILE.html");
        picture->type_name("FILE")->excludes(contents)->excludes(values);
        values->excludes(contents);
        add_table_options(diff);
        add_json(diff).excludes(picture);
    }

    void add_dumps()
    {
        CLI::App& dump = add(app_, "dump", "Each field beside its bytes: eu, bm, block, cfg, ftbl", nullptr);
        dump.require_subcommand(0, 1);
        const auto add_part = [&](const char* name, const char* help, verb run) {
            CLI::App& part = add(dump, name, help, run);
            part.add_option("N", given_.number, "Its number, from 0")->required()->type_name("");
            add_image_options(part);
            add_json(part);
        };
        add_part("eu", "An erase unit of AFS", dump_erase_unit);
        add_part("bm", "A block map of EFS", dump_block_map);
        add_part("block", "A data block of EFS", dump_data_block);
        const auto add_table = [&](const char* name, const char* help, verb run) {
            CLI::App& table = add(dump, name, help, run);
            table.add_option("FILE", given_.inputs, "The table, or a partition of one; without one, that of the set")
                ->expected(0, 1)
                ->type_name("");
            add_table_options(table);
            add_json(table);
        };
        add_table("cfg", "A cfg table (of a set: zonc.cfg)", dump_cfg_table);
        add_table("ftbl", "A file table", dump_file_table);

        CLI::App& scan_verb = add(app_, "scan", "Find the partitions inside a flash dump", scan);
        scan_verb.add_option("FILE", given_.inputs, "The dump")->required()->expected(1)->type_name("");
        add_json(scan_verb);
    }

    // The edits: verbs of their own, and each to be tried by trace, cut and torture.
    void add_edits(CLI::App& parent, verb run)
    {
        CLI::App& put = add_edit(parent, run, "put", "Store a file in the volume, in place of the old one", put_file);
        put.footer(about_put);
        add_path(put);
        put.add_option("FILE", given_.source_file, "Its contents; standard input if absent or -")->type_name("");

        add_path(add_edit(parent, run, "rm", "Remove a file from the volume", remove_file));

        CLI::App& import =
            add_edit(parent, run, "import", "Store every file of a folder, as 'extract' names them", import_folder);
        add_folder(import, "The folder");

        CLI::App& reclaim_verb =
            add_edit(parent, run, "reclaim", "Win back the room of dead contents", reclaim, images::as_arguments);
        reclaim_verb.add_flag("--all", given_.all, "Every erase unit, not only those that gain room");
        add_edit(parent, run, "wipe", "Overwrite dead contents, so that nobody reads them", wipe, images::as_arguments);
        CLI::App& batch_verb = add_edit(parent, run, "batch", "Several edits, all or none, from a script", batch);
        batch_verb.footer(about_batch);
        batch_verb.add_option("FILE", given_.source_file, "The script; standard input if absent or -")->type_name("");
        if (run != make_change) return; // a repair may build the image anew, which isn't done on the flash

        CLI::App& repair_verb =
            add_edit(parent, run, "repair", "Mend what 'check' finds", repair, images::as_arguments);
        repair_verb.footer(about_repair);
        repair_verb.add_flag("--lossy", given_.lossy, "Let go of files that can't be saved");
    }

    void add_values()
    {
        CLI::App& nvar =
            add(app_, "nvar", "Configuration values, by name: ls, get, set, export, import, diff", nullptr);
        nvar.require_subcommand(0, 1);
        nvar.footer(about_nvar);
        CLI::App& ls = add(nvar, "ls", "List every value in force", list_values);
        ls.footer(about_nvar_ls);
        add_json(ls);

        CLI::App& get = add(nvar, "get", "Write one value to standard output", get_value);
        add_path(get);
        add_json(get);
        add_force(get, "Binary data to a terminal, too");

        add_value_edits(nvar, make_change);

        add(nvar, "export", "Every value in force as a document for 'import' and 'diff'", export_values);
        CLI::App& diff = add(nvar, "diff", "Compare the values of two sets, or of exported documents", diff_values);
        diff.footer("Exit status 0 if they are the same, 1 if they differ.");
        diff.add_option("SIDES", given_.inputs, "Two of: a set file, its folder, an exported document")
            ->required()
            ->expected(2)
            ->type_name("");
        add_json(diff);

        CLI::App& cfg = add(app_, "cfg", "Configuration tables by themselves: ls, unpack, pack", nullptr);
        cfg.require_subcommand(0, 1);
        CLI::App& records = add(cfg, "ls", "List the records of cfg tables", list_records);
        records.add_option("FILE", given_.inputs, "Tables or partitions of one; without one, those of the set")
            ->type_name("");
        add_table_options(records);
        add_json(records);
        CLI::App& unpack = add(cfg, "unpack", "A table as a document that 'pack' takes", unpack_table);
        unpack.add_option("FILE", given_.inputs, "A table, or a partition of one")
            ->required()
            ->expected(1)
            ->type_name("");
        add_table_options(unpack);
        CLI::App& pack = add(cfg, "pack", "Make a table, or a partition, of a document", pack_table);
        pack.add_option("FILE", given_.source_file, "The document; standard input if absent or -")->type_name("");
        pack.add_option("-o,--output", given_.change.output, "Write into this file; standard output if absent or -")
            ->type_name("FILE");
        add_force(pack, "Binary data to a terminal, too");

        CLI::App& ftbl = add(app_, "ftbl", "File tables: ls", nullptr);
        ftbl.require_subcommand(0, 1);
        CLI::App& rows = add(ftbl, "ls", "List the files that a file table names", list_file_table);
        rows.add_option("FILE", given_.inputs, "The table; without one, that of the set")
            ->expected(0, 1)
            ->type_name("");
        rows.add_option("--sku", given_.sku, "Only of this SKU")->type_name("N");
        add_json(rows);
    }
    void add_value_edits(CLI::App& nvar, verb run)
    {
        CLI::App& set = add_edit(nvar, run, "set", "Change one value", set_value, images::of_the_set);
        set.footer(about_nvar_set);
        add_path(set);
        set.add_option("VALUE", given_.value, "utf8:TEXT, hex:BYTES, or a file that holds it (- for standard input)")
            ->required()
            ->type_name("");
        add_drop_unknown(set);

        CLI::App& import = add_edit(nvar, run, "import", "Change values as an exported document tells, in one run",
                                    import_values, images::of_the_set);
        import.add_option("FILE", given_.source_file, "The document; standard input if absent or -")->type_name("");
        add_drop_unknown(import);
    }

    // An edit under another verb, which tries it and saves nothing.
    CLI::App& add_trial(const char* name, const char* help, verb run)
    {
        CLI::App& trial = add(app_, name, help, nullptr);
        trial.footer(about_trials);
        trial.require_subcommand(0, 1);
        const std::string group = std::exchange(group_, "Edits");
        add_edits(trial, run);
        CLI::App& nvar = add(trial, "nvar", "Of values: set, import", nullptr);
        nvar.require_subcommand(0, 1);
        add_value_edits(nvar, run);
        group_ = group;
        if (run != cut) add_json(trial);
        return trial;
    }
    void add_trials()
    {
        add_trial("trace", "The operations on the flash that an edit makes", trace);
        CLI::App& cut_verb = add_trial("cut", "The images as they are after some operations of an edit", cut);
        cut_verb.add_option("--after", given_.after, "So many operations are done")->required()->type_name("N");
        cut_verb.add_option("--bytes", given_.torn_bytes, "And so many bytes of the next one (0)")->type_name("N");
        cut_verb
            .add_option("-o,--output", given_.change.output,
                        "The file, or for several images the folder, for the result")
            ->type_name("FILE");
        add_trial("torture", "Every cut of an edit, mounted and checked", torture);
    }

    void add_makers()
    {
        CLI::App& sample = add(app_, "sample", "Make a complete set to try the tool on", make_sample);
        add_folder(sample, "A folder for it, made if it isn't there");

        CLI::App& mkfs = add(app_, "mkfs", "Make an empty image: afs, efs", nullptr);
        mkfs.require_subcommand(0, 1);
        CLI::App& afs = add(mkfs, "afs", "An AFS volume", make_afs);
        add_target(afs);
        afs.add_option("--size", given_.size, "Bytes: 32K to 2040K, in steps of 8K")
            ->required()
            ->transform(CLI::AsSizeValue(false))
            ->type_name("N");
        afs.add_option("--files", given_.files, "File numbers that it has room for (1024)")->type_name("N");
        CLI::App& efs = add(mkfs, "efs", "An EFS image, as the file table lays it out", make_efs);
        add_target(efs);
        add_table_options(efs);

        CLI::App& build_verb = add(app_, "build", "Make the images and tables of a set from its inputs", build);
        build_verb.footer(about_build);
        build_verb
            .add_option("-o,--output", given_.change.output, "Into this folder, with all that belongs to the set")
            ->type_name("DIR");
        build_verb.add_option("--depfile", given_.depfile, "List the inputs, as make and ninja read it")
            ->type_name("FILE");
        add_json(add(app_, "size", "The smallest partitions for what a set holds", smallest_size));

        CLI::App& set = add(app_, "set", "Set files: init", nullptr);
        set.require_subcommand(0, 1);
        CLI::App& init = add(set, "init", "Write yfs.json by looking at the files of a folder", init_set);
        init.add_option("DIR", given_.folder, "The folder (.)")->type_name("");
        init.add_option("--sku", given_.sku, "The SKU, where the file table has several")->type_name("N");
        add_force(init, "Replace a set file that is there already");
    }
    void add_target(CLI::App& sub)
    {
        sub.add_option("FILE", given_.path, "The new image")->required()->type_name("");
        add_force(sub, "Replace a file that is there already");
    }

    void add_support()
    {
        CLI::App& completion = add(app_, "completion", "A completion script for a shell", nullptr);
        completion.footer(about_completion);
        completion.add_option("SHELL", given_.format, "bash, zsh or fish")->required()->type_name("");
        completion.callback([this] { parsed_.text = completion_script(words_of(app_, ""), given_.format); });

        CLI::App& help = add(app_, "help", "Print the help of a verb", nullptr);
        help.add_option("VERB", given_.inputs, "The verb: cat, or nvar set")->type_name("");
        help.callback([this] { parsed_.text = help_of(given_.inputs); });

        add(app_, "explain", "What a finding of 'check' means, where it comes from, what helps", explain)
            .add_option("ID", given_.path, "As 'check' prints it: chain-loop; without one, a list of all")
            ->type_name("");
    }

    std::string help_of(const std::vector<std::string>& verbs)
    {
        CLI::App* at = &app_;
        std::string path;
        for (const std::string& word : verbs) {
            path += at == &app_ ? "yfs" : " " + at->get_name();
            std::vector<std::string> known;
            CLI::App* next = find_verb(*at, word, known);
            if (next == nullptr) refuse_verb(word, known);
            at = next;
        }
        return at->get_formatter()->make_help(at, path.empty() ? "yfs" : path + " " + at->get_name(),
                                              CLI::AppFormatMode::Normal) +
               "\n"; // at->help() would answer for the verb that was parsed, this one
    }

    command& parsed_;
    options& given_;
    CLI::App app_;
    std::string group_ = "Verbs";
};

// The first word that should have been a verb and is none; empty if they all are.
std::string wrong_verb(CLI::App& app, int argc, char** argv, std::vector<std::string>& known)
{
    CLI::App* at = &app;
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        if (word.starts_with("-")) {
            const CLI::Option* option = at->get_option_no_throw(word);
            if (option != nullptr && option->get_items_expected_max() > 0) ++i;
            continue;
        }
        if (at->get_subcommands({}).empty()) return {};
        CLI::App* next = find_verb(*at, word, known);
        if (next == nullptr) return word;
        at = next;
    }
    return {};
}

// As far as the verbs were understood: "yfs nvar set".
std::string verb_of(const CLI::App& app)
{
    std::string out = app.get_name();
    for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
        at = at->get_subcommands().front();
        out += " " + at->get_name();
    }
    return out;
}

} // namespace

command parse_command_line(int argc, char** argv)
{
    command parsed;
    grammar words(parsed);
    try {
        words.app().parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return {{}, nullptr, words.app().help() + "\n"};
    } catch (const CLI::CallForVersion& version) {
        return {{}, nullptr, std::string(version.what()) + "\n"};
    } catch (const CLI::ParseError& error) {
        std::vector<std::string> known;
        const std::string word = wrong_verb(words.app(), argc, argv, known);
        if (word.empty())
            throw failure(fault::usage, error.what(),
                          fmt::format("'{} --help' tells what there is", verb_of(words.app())));
        refuse_verb(word, known);
    }
    if (parsed.run == nullptr && parsed.text.empty())
        throw failure(fault::usage, "no verb", fmt::format("'{} --help' lists the verbs", verb_of(words.app())));
    return parsed;
}

} // namespace yfs::tool
