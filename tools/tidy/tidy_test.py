#!/usr/bin/env python3
"""Plants each breach of the house rules in a tree of its own and sees it found, there and nowhere else."""
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import tidy

PROSE = "// Owns the planted thing of this test.\n"
HEADER = PROSE + "#pragma once\n"


class TidyTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.root = Path(temporary.name)
        # A tree in which all is well.
        for folder in tidy.LEVEL:
            self.put(f"src/{folder}/README.md", f"What {folder} is for.\n")
            self.put(f"src/{folder}/Base.h", HEADER)
        self.put("src/central/ZebRoot.h", HEADER)
        self.put("src/model/Base.cpp", PROSE + '#include "model/Base.h"\n#include <string>\n#include "runtime/Base.h"\n')

    def put(self, path, text):
        target = self.root / path
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text, encoding="utf-8")

    def breaches(self):
        tree = tidy.read_tree(self.root)
        return [(rule.__name__, path, number) for rule in tidy.RULES for path, number, _ in rule(tree)]

    def finds(self, rule, path, number, text):
        """The text at this path breaks this rule in this line, and nothing else."""
        self.put(path, text)
        self.assertEqual(self.breaches(), [(rule, path, number)], text)
        (self.root / path).unlink()

    def accepts(self, path, text):
        self.put(path, text)
        self.assertEqual(self.breaches(), [], text)
        (self.root / path).unlink()

    def test_a_tree_in_which_all_is_well(self):
        self.assertEqual(self.breaches(), [])

    def test_includes_go_downwards(self):
        for upper, lower in [("model", "analysis"), ("runtime", "model"), ("central", "platform"), ("sonar", "lab"),
                             ("config", "status"), ("client", "central"), ("platform", "sonar"), ("lab", "apps")]:
            self.finds("include_direction", f"src/{upper}/X.cpp", 2, PROSE + f'#include "{lower}/Base.h"\n')
        for upper, lower in [("apps", "lab"), ("central", "analysis"), ("platform", "central"), ("lab", "runtime")]:
            self.accepts(f"src/{upper}/X.cpp", PROSE + f'#include "{lower}/Base.h"\n')

    def test_the_root_object_is_data(self):
        include = '#include "central/ZebRoot.h"\n'
        self.accepts("src/analysis/X.h", HEADER + include)
        self.accepts("src/model/XText.cpp", PROSE + include)
        self.finds("include_direction", "src/model/X.h", 3, HEADER + include)
        self.finds("include_direction", "src/status/X.cpp", 2, PROSE + include)

    def test_a_folder_without_a_place(self):
        self.put("src/misc/README.md", "Anything.\n")
        self.finds("include_direction", "src/misc/X.h", 1, HEADER)

    def test_includes_are_written_from_src(self):
        self.finds("include_paths", "src/model/X.cpp", 2, PROSE + '#include "Base.h"\n')

    def test_own_header_first(self):
        self.put("src/model/X.h", HEADER)
        own = '#include "model/X.h"\n'
        self.finds("own_header_first", "src/model/X.cpp", 2, PROSE + "#include <string>\n" + own)
        self.finds("own_header_first", "src/model/X.cpp", 1, PROSE)
        self.accepts("src/model/X.cpp", PROSE + own + "#include <string>\n")

    def test_files_open_with_prose(self):
        self.finds("opening_prose", "src/model/X.cpp", 1, "int x;\n")
        self.finds("opening_prose", "src/model/X_test.cpp", 1, "// Tests.\nint x;\n")
        self.accepts("src/model/gen/X.cpp", "int x;\n")

    def test_headers_are_guarded(self):
        self.finds("header_guard", "src/model/X.h", 1, PROSE)

    def test_leftovers(self):
        for word in ["TO" + "DO", "FIX" + "ME", "XX" + "X", "HA" + "CK", "GTEST_SK" + "IP", "DISABLED" + "_x"]:
            self.finds("no_leftovers", "src/model/X.cpp", 2, PROSE + f"// {word}: later\n")
            self.finds("no_leftovers", "docs/x.md", 1, f"{word}: later\n")
        self.accepts("src/model/X.cpp", PROSE + "int HACKS, todo, mastoDON;\n")

    def test_dead_code(self):
        for code in ["x = 1;", "if (x) {", "if (x) y(x);", "} else {", "else {", "return x + 1;", "foo(x, y());", "a->b();", "int x = 5;", "}", "#include <x>",
                     "const int x;", "std::vector<int> y = z;", "x += 2;"]:
            self.finds("no_dead_code", "src/model/X.cpp", 2, PROSE + f"// {code}\n")
        self.finds("no_dead_code", "src/model/X.cpp", 2, PROSE + "#if 0\n#endif\n")
        for prose in ["for a while (see below);", "A call of f(x) is enough.", "not this; that",
                      "the first one;", "returns nothing. Then again;", "    x = 1;", "why x = 1 here"]:
            self.accepts("src/model/X.cpp", PROSE + f"// {prose}\n")

    def test_every_folder_has_a_readme(self):
        (self.root / "src/model/README.md").unlink()
        self.assertEqual(self.breaches(), [("folder_readme", "src/model/README.md", 1)])

    def test_the_library_looks_at_no_clock_and_no_machine(self):
        for header in ["<chrono>", "<random>", "<thread>", "<unistd.h>", "<sys/socket.h>"]:
            self.finds("library_calls", "src/analysis/X.cpp", 2, PROSE + f"#include {header}\n")
        for call in ["std::chrono::steady_clock::now()", "std::time(nullptr)", "time(NULL)", "rand()", "std::rand()",
                     "srand(0)", "std::random_device d", "std::thread t", 'getenv("X")', "std::clock()"]:
            self.finds("library_calls", "src/analysis/X.cpp", 2, PROSE + f"auto x = {call};\n")
        for code in ["pt.time()", "event->time()", '"rand()"', "timeIs(0)", "strand()", "1'000'000", "x(); // time(NULL)"]:
            self.accepts("src/analysis/X.cpp", PROSE + f"auto x = {code};\n")
        self.accepts("src/analysis/X.h", HEADER + "double time() const;\nstd::string text = R\"(rand())\";\n")
        self.accepts("src/analysis/X_test.cpp", PROSE + "#include <thread>\nstd::thread t;\n")
        self.accepts("src/platform/X.cpp", PROSE + "#include <unistd.h>\nauto x = time(nullptr);\n")

    def test_addresses(self):
        self.finds("no_addresses", "docs/x.md", 1, "See https:" + "//packages.invalid/x.\n")
        self.finds("no_addresses", "docs/x.md", 1, "Stands in /ho" + "me/me/zeb.\n")
        self.accepts("docs/x.md", "http://127.0.0.1:8080/, http://zeb.example.com/x, below src/work/x\n")

    def test_generated_code_is_up_to_date(self):
        self.put("tools/modelgen/modelgen.py", "import sys\nsys.exit(0 if sys.argv[1:] == ['--check'] else 2)\n")
        self.assertEqual(self.breaches(), [])
        self.put("tools/modelgen/modelgen.py", "import sys\nsys.exit(1)\n")
        self.assertEqual(self.breaches(), [("generated_code", tidy.GENERATED, 1)])

    def test_what_the_library_needs(self):
        compiler = os.environ.get("CXX", "c++")
        source = self.root / "x.cpp"
        source.write_text("#include <string>\nstd::string f(int x) { return std::to_string(x) + std::string(99, 'x'); }\n",
                          encoding="utf-8")
        other, good, bad = (self.root / f"lib{name}.so" for name in ("other", "good", "bad"))
        build = [compiler, "-shared", "-fPIC", "-o"]
        subprocess.run([*build, other, "-x", "c++", "/dev/null", "-Wl,-soname,libother.so.1"], check=True)
        subprocess.run([*build, good, source], check=True)
        subprocess.run([*build, bad, source, "-Wl,--no-as-needed", other], check=True)
        self.assertEqual(list(tidy.library_needs(good)), [])
        self.assertEqual(len(list(tidy.library_needs(bad))), 1)
        self.assertIn("libother.so.1", list(tidy.library_needs(bad))[0][2])

    def test_the_program_fails_on_a_breach_and_on_an_empty_tree(self):
        def run(root):
            return subprocess.run([sys.executable, tidy.__file__, root], stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual(run(self.root).returncode, 0)
        self.put("src/model/X.cpp", "int x;\n")
        failed = run(self.root)
        self.assertEqual(failed.returncode, 1)
        self.assertIn("src/model/X.cpp:1: opens without", failed.stdout)
        with tempfile.TemporaryDirectory() as empty:
            self.assertEqual(run(empty).returncode, 1)


if __name__ == "__main__":
    unittest.main()
