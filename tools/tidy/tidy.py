#!/usr/bin/env python3
"""The house rules, as a test: reads the sources, changes nothing, prints each breach as `file:line: what is wrong`.

    tidy.py ROOT [--library build/release/lib/libzeb.so]

Each rule is a function that is given the tree and yields breaches; RULES at the end lists them. A rule that has to be
broken for good reason is changed here, where everyone sees it: there is no comment that switches a rule off.
"""
import argparse
import os
import re
import subprocess
import sys
from dataclasses import dataclass, field
from pathlib import Path

# From bottom to top. A file may include from its own folder and from the folders of lower lines.
LEVELS = [
    ["runtime"],
    ["model"],
    ["config", "status", "analysis"],
    ["central", "client"],
    ["platform"],
    ["sonar"],
    ["northbound"],
    ["lab"],
    ["apps"],
]
LEVEL = {folder: level for level, folders in enumerate(LEVELS) for folder in folders}
LIBRARY_FOLDERS = ["runtime", "model", "config", "status", "analysis", "client", "central"]
GENERATED = "src/model/gen/"
# What libzeb.so may need at run time: the C++ and the C library, and the loader that comes with them.
STANDARD_LIBRARIES = re.compile(r"(libstdc\+\+|libm|libgcc_s|libc|ld-linux[\w-]*)\.so(\.\d+)*")
# What would make two runs differ, or wait, or look at the machine. Tests beside the code may use threads and files.
FORBIDDEN_HEADERS = re.compile(
    r"<(chrono|random|thread|mutex|shared_mutex|condition_variable|future|semaphore|barrier|latch|stop_token|ctime|"
    r"csignal|filesystem|time\.h|signal\.h|unistd\.h|pthread\.h|fcntl\.h|poll\.h|sched\.h|"
    r"(sys|net|netinet|arpa|linux|netlink)/.*)>")
FORBIDDEN_CALLS = re.compile(
    r"\b(system_clock|steady_clock|high_resolution_clock|random_device|getenv|secure_getenv|clock_gettime|gettimeofday|"
    r"std::j?thread|std::async)\b|std::clock\b|(?<![\w.>:])(std::|::)?"
    r"((rand|random|drand48)\s*\(\s*\)|(srand|srandom|rand_r)\s*\(|time\s*\(\s*(NULL|nullptr|0\s*\)|&))")
ALLOWED_HOSTS = re.compile(r"(localhost|127\.\d+\.\d+\.\d+|(www\.)?w3\.org|([\w-]+\.)*example(\.(com|net|org))?)(:\d+)?")


@dataclass
class Source:
    """A text file of the tree; `path` is relative to the root, with slashes."""
    path: str
    text: str
    lines: list = field(init=False)

    def __post_init__(self):
        self.lines = self.text.splitlines()

    @property
    def is_code(self):
        return self.path.endswith((".h", ".cpp"))

    @property
    def is_test(self):
        return self.path.endswith("_test.cpp")

    @property
    def folder(self):
        """The folder below src/, or None outside of it."""
        parts = self.path.split("/")
        return parts[1] if parts[0] == "src" and len(parts) > 2 else None


@dataclass
class Tree:
    root: Path
    sources: list

    @property
    def code_below_src(self):
        return [s for s in self.sources if s.is_code and s.folder and not s.path.startswith(GENERATED)]


def read_tree(root):
    """All text files below the root, but for what git and builds keep there."""
    sources = []
    for folder, folders, names in os.walk(root):
        folders[:] = sorted(f for f in folders if f not in (".git", "build", "__pycache__"))
        for name in sorted(names):
            path = Path(folder, name)
            if name == ".git":  # of a linked work tree
                continue
            try:
                sources.append(Source(path.relative_to(root).as_posix(), path.read_text(encoding="utf-8")))
            except UnicodeDecodeError:
                pass  # an input of a fuzz target, a picture
    return Tree(Path(root), sources)


def code_lines(source):
    """The numbered lines without comments, and with the inside of literals taken out."""
    def blank(match):
        text = match.group()
        if text.startswith("R"):
            return '""' + "\n" * text.count("\n")
        return text[0] * 2 if text[0] in "\"'" else "\n" * text.count("\n") + " "
    literal_or_comment = r'R"(\w*)\(.*?\)\1"|//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])\'(?:\\.|[^\'\\\n])+\''
    return enumerate(re.sub(literal_or_comment, blank, source.text, flags=re.S).splitlines(), 1)


def includes(source):
    for number, line in enumerate(source.lines, 1):
        match = re.match(r'\s*#\s*include\s*([<"])([^>"]+)[>"]', line)
        if match:
            yield number, match[1] + match[2] + (">" if match[1] == "<" else '"'), match[2]


def may_include(source, target):
    """Whether a file below src/ may include `target`, a path as it is written."""
    folder = target.split("/")[0]
    if folder not in LEVEL or folder == source.folder:
        return True
    if target == "central/ZebRoot.h":  # the root object is data
        if source.folder == "analysis" or (source.folder == "model" and source.path.endswith(".cpp")):
            return True
    return LEVEL[folder] < LEVEL[source.folder]


def include_direction(tree):
    for source in tree.code_below_src:
        if source.folder not in LEVEL:
            yield source.path, 1, f"the folder {source.folder} has no place in the order of folders"
            continue
        for number, _, target in includes(source):
            if not may_include(source, target):
                yield source.path, number, f"{source.folder} must not include {target}: that is not below it"


def include_paths(tree):
    for source in tree.code_below_src:
        for number, written, target in includes(source):
            if written.startswith('"') and not (tree.root / "src" / target).exists():
                yield source.path, number, f'"{target}" is no file below src/: write "folder/File.h"'


def own_header_first(tree):
    paths = {source.path for source in tree.sources}
    for source in tree.code_below_src:
        header = source.path.removesuffix(".cpp") + ".h"
        if source.path.endswith(".cpp") and header in paths:
            number, written, target = next(includes(source), (1, "nothing", ""))
            if "src/" + target != header:
                yield source.path, number, f"the first include is {written} and not the file's own header"


def opening_prose(tree):
    for source in tree.code_below_src:
        prose = ""
        for line in source.lines:
            if not line.startswith("//"):
                break
            prose += line.lstrip("/")
        if len(prose.split()) < 4:
            yield source.path, 1, "opens without a comment that says what the file is for"


def header_guard(tree):
    for source in tree.code_below_src:
        if source.path.endswith(".h") and "#pragma once" not in source.lines:
            yield source.path, 1, "a header without #pragma once"


def no_leftovers(tree):
    # In two pieces, so that this line is none.
    words = re.compile(r"\b(TO" + r"DO|FIX" + r"ME|XX" + r"X|HA" + r"CK)\b|\bDISABLED" + r"_\w|\bGTEST_SK" + r"IP\b")
    for source in tree.sources:
        for number, line in enumerate(source.lines, 1):
            match = words.search(line)
            if match:
                yield source.path, number, f"{match.group()}: do it, or take it out"


def no_dead_code(tree):
    # Code that was taken out starts where prose starts; an example in a comment is set in by three spaces or more.
    dead = re.compile(
        r"\s*//\s{0,2}(?:"
        r"(?:(?:else )?(?:if|for|while|switch|catch)\s*\(.*|else|do|try)\s*[{;]"
        r"|(?:if|for|while)\s*\(.*\).*;"
        r"|return\b[^.]*;"
        r"|#\s*(?:include|define|undef|if|ifdef|ifndef|endif|else)\b.*"
        r"|[{}]\s*;?|\}\s*(?:else|while|catch)\b.*[{;]"
        r"|[\w:<>,&*.\[\]\->]+(?:\s+[\w:*&]+)?\s*(?:\([^()]*(?:\([^()]*\)[^()]*)*\)|[-+|&^]?=\s*\S.*)\s*;"  # call, value
        r"|(?:const |auto |static )\s*.*;"
        r")\s*$")
    for source in tree.sources:
        if not source.is_code or source.path.startswith(GENERATED):
            continue
        for number, line in enumerate(source.lines, 1):
            if dead.match(line) or re.match(r"\s*#\s*if\s+0\b", line):
                yield source.path, number, "code that does not run: take it out"


def folder_readme(tree):
    paths = {source.path for source in tree.sources}
    for folder in sorted({source.folder for source in tree.sources if source.folder}):
        readme = f"src/{folder}/README.md"
        if readme not in paths:
            yield readme, 1, "missing: what the folder reads and writes, and which file to read first"


def library_calls(tree):
    for source in tree.code_below_src:
        if source.folder not in LIBRARY_FOLDERS or source.is_test:
            continue
        for number, written, _ in includes(source):
            if FORBIDDEN_HEADERS.fullmatch(written):
                yield source.path, number, f"libzeb must not use {written}: time and input are handed in"
        for number, line in code_lines(source):
            match = FORBIDDEN_CALLS.search(line)
            if match:
                yield source.path, number, f"libzeb must not use {match.group().strip()}: time and input are handed in"


def no_addresses(tree):
    # Neither where packages come from nor where a tree stands on one machine is the project's to say.
    machine = re.compile(r"(?<![\w.\-])/(?:home|root|Users|work)/[\w.]+")
    for source in tree.sources:
        for number, line in enumerate(source.lines, 1):
            for match in re.finditer(r"\bhttps?://([^/\s\"'`<>)\]]+)", line):
                if not ALLOWED_HOSTS.fullmatch(match[1]):
                    yield source.path, number, f"{match.group()}: no addresses of others in here"
            match = machine.search(line)
            if match:
                yield source.path, number, f"{match.group()}: a path of one machine"


def generated_code(tree):
    generator = tree.root / "tools/modelgen/modelgen.py"
    if generator.exists():
        run = subprocess.run([sys.executable, str(generator), "--check"], cwd=tree.root, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        if run.returncode != 0:
            yield GENERATED, 1, "is not what ./dev gen prints\n" + run.stdout.rstrip()


RULES = [include_direction, include_paths, own_header_first, opening_prose, header_guard, no_leftovers, no_dead_code,
         folder_readme, library_calls, no_addresses, generated_code]


def library_needs(library):
    """Breaches of the rule that the library links the standard library and nothing else."""
    listing = subprocess.run(["readelf", "--dynamic", "--wide", str(library)], stdout=subprocess.PIPE, text=True,
                             check=True).stdout
    needed = re.findall(r"\(NEEDED\).*\[(.+)\]", listing)
    if not needed:
        yield str(library), 1, "needs nothing at all: this is not the library that was meant"
    for name in needed:
        if not STANDARD_LIBRARIES.fullmatch(name):
            yield str(library), 1, f"needs {name}: libzeb links the standard library and nothing else"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("root", type=Path)
    parser.add_argument("--library", type=Path, help="libzeb.so, to see what it needs")
    options = parser.parse_args()
    tree = read_tree(options.root)
    breaches = [breach for rule in RULES for breach in rule(tree)]
    if options.library:
        breaches += library_needs(options.library)
    for path, number, text in breaches:
        print(f"{path}:{number}: {text}")
    print(f"{len(tree.sources)} files, {len(breaches)} breaches")
    return 1 if breaches or not tree.code_below_src else 0


if __name__ == "__main__":
    sys.exit(main())
