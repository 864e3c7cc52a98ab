"""The manual page and the completions name exactly the verbs and options that the program has.

Usage: words_test.py YFS MANUAL_SOURCE
"""
import pathlib
import re
import subprocess
import sys

yfs, manual = sys.argv[1], pathlib.Path(sys.argv[2]).read_text()
COMMON = {"-h", "--help", "--set"}


def output(*words):
    return subprocess.run([yfs, *words], check=True, capture_output=True, text=True).stdout


def grammar(*verb):
    """{verb: its options}, of the verb and all below it."""
    text = output(*verb, "--help")
    assert text == output("help", *verb) and max(map(len, text.splitlines())) <= 120 and "Usage: yfs " + " ".join(verb) in text, verb
    options = set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", "\n".join(re.findall(r"^  (-\S+)", text, re.M)))) - COMMON - {"--version"}
    below = re.split(r"^Options:$", text, flags=re.M)[1]
    subs = re.findall(r"^  ([a-z]+)(?: {2,}|$)", below, re.M) if re.search(r"^Usage: yfs.* \[VERB\]$", text, re.M) else []
    found = {} if subs and not options else {" ".join(verb): options}
    for sub in subs: found |= grammar(*verb, sub)
    return found


verbs = {verb: options for verb, options in grammar().items() if verb}
wrong = []
trials = ("trace ", "cut ", "torture ")  # an edit below one of these is told once, as "edit"
shown = {m[1]: set(re.findall(r"(?<=\*)--?[a-z][a-z-]*(?=\*)", m[2])) for m in re.finditer(r"^\*yfs ([a-z ]+)\*.*\n((?:\t.*\n|\n)*)", manual, re.M)}
wanted = {verb: options for verb, options in verbs.items() if not verb.startswith(trials)}
for verb in sorted(wanted.keys() | shown.keys()):
    if wanted.get(verb) != shown.get(verb): wrong.append(f"the manual has {verb}: {shown.get(verb)}, the program {wanted.get(verb)}")
for shell in ("bash", "zsh", "fish"):
    script = output("completion", shell)
    if shell == "bash": told = {m[1]: set(m[2].split()) - COMMON for m in re.finditer(r"^ +'([a-z ]+)'\) .*options='(.*?)'", script, re.M)}
    elif shell == "zsh": told = {m[1]: set(re.findall(r"'(--?[a-z-]+):", m[2])) - COMMON
                                 for m in re.finditer(r"^ +\('([a-z ]+)'\)\n.*\n +options=\((.*)\)$", script, re.M)}
    else:
        told = {verb: set() for verb in re.findall(r"'([a-z ]+)'", re.search(r"^set -g __yfs_verbs(.*)$", script, re.M)[1])}
        for verb, rest in re.findall(r"__yfs_at \"([a-z ]+)\"'((?: -[sl] \S+)+)", script):
            told[verb] |= {("-" if kind == "s" else "--") + name for kind, name in re.findall(r"-([sl]) (\S+)", rest)} - COMMON
    for verb, options in verbs.items():
        if told.get(verb) != options: wrong.append(f"{shell} completes {verb}: {told.get(verb)}, the program has {options}")
    for verb in told.keys() - verbs.keys():
        if not any(other.startswith(verb + " ") for other in verbs): wrong.append(f"{shell} completes {verb}, which isn't there")
print("\n".join(wrong + [f"{len(verbs)} verbs, {len(wrong)} wrong"]))
sys.exit(1 if wrong or len(verbs) < 40 else 0)
