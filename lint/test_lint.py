#!/usr/bin/env python3
"""A bad example for each rule of the lint, and a good one beside it."""
import unittest

import lint

TABLE = """
| Folder | For | May use | Used by |
|---|---|---|---|
| `src/engine/` | decisions | `src/inventory`, `src/support` | |
| `src/inventory/` | ports | `src/support` | |
| `src/support/` | tools | | |
"""


def whys(found):
    return [why for _, _, why in found]


class Lint(unittest.TestCase):
    def test_an_arrow_that_is_not_in_the_table_is_found(self):
        allowed = lint.arrows_from_table(TABLE)
        exists = {"src/engine/A.h", "src/inventory/B.h"}.__contains__
        self.assertEqual(lint.check_arrows("src/engine/X.cpp", ['#include "inventory/B.h"'], allowed, exists), [])
        self.assertEqual(whys(lint.check_arrows("src/inventory/X.cpp", ['#include "engine/A.h"'], allowed, exists)),
                         ["src/inventory may not use src/engine"])

    def test_rooms_stand_from_the_ground_up(self):
        tool = "| `rehearse/a/` | | `rehearse/b`, `simwin` | |\n| `rehearse/b/` | | | |"
        self.assertEqual(len(lint.check_order(lint.arrows_from_table(tool))), 1)
        rows = "| `simwin/` | | `simwin` | |\n| `simwin/kernel/` | | | |\n| `simwin/a/` | | `simwin/kernel` | |\n| `simwin/b/` | | `simwin/a` | |"
        allowed = lint.arrows_from_table(rows)
        self.assertEqual(lint.check_order(allowed), [])
        self.assertEqual(len(lint.check_order(lint.arrows_from_table(rows.replace("`simwin/kernel` |", "`simwin/b` |")))), 1)
        self.assertEqual([path for path, _, _ in lint.check_rooms({"simwin/a", "simwin/c"}, allowed)], ["simwin/c"])
        exists = {"simwin/b/api.h", "simwin/b/B.h"}.__contains__
        self.assertEqual(lint.check_arrows("simwin/a/X.cpp", ['#include "simwin/b/api.h"'], allowed, exists), [])
        self.assertEqual(len(lint.check_arrows("simwin/a/X.cpp", ['#include "simwin/b/B.h"'], allowed, exists)), 1)

    def test_an_operation_that_nobody_asks_for_is_found(self):
        apis = {"simwin/a/api.h": {"Ask", "Idle"}}
        self.assertEqual(whys(lint.check_asked(apis, [["Ask(); // not Idle"]])), ["operation Idle: the product does not use it"])

    def test_names_that_a_folder_bans_are_found(self):
        for path, line in [
            ("src/a/X.cpp", "#include <vector>"), ("src/a/X.cpp", "auto s = view.substr(1);"),
            ("src/a/X.cpp", "throw 1;"), ("src/a/X.cpp", "strcpy(a, b);"), ("src/a/X.cpp", "CloseHandle(file);"), ("src/a/X.cpp", "#ifdef _WIN32"),
            ("src/a/X.cpp", '#include "simwin/win32.h"'), ("simwin/a/X.cpp", "std::chrono::seconds(1);"), ("simwin/a/X.cpp", "delete thing;"),
            ("simwin/a/X.cpp", '#include "engine/A.h"'), ("tests/X.cpp", "std::wstring text;"), ("rehearse/XLinux.cpp", "std::wstring text;"),
            ("rehearse/X.cpp", "// TODO later"), ("tests/X.cpp", "constexpr int kMost = 5;"), ("bench/X.h", "// made up\nint count_ = 0;"), ("rehearse/X.cpp", "#if 0"),
        ]:
            self.assertEqual(len(lint.check_text(path, line.split("\n"))), 1, line)
        for path, line in [
            ("src/a/X.cpp", "#include <span>"), ("src/platform/win32.h", "// door"), ("src/a/X.cpp", "// no try here"), ("src/support/system/Handles.h", "// owners\nCloseHandle(file);"),
            ("bench/X.cpp", "Unit(benchmark::kSecond); int m_count = k_x;"), ("rehearse/X.cpp", "std::string text = \"goto\";"), ("simwin/a/X.cpp", "SetTime(0);"), ("simwin/a/X.cpp", "Room(const Room&) = delete;"),
        ]:
            self.assertEqual(lint.check_text(path, line.split("\n")), [], line)

    def test_a_file_that_grew_and_a_header_without_its_comment_are_found(self):
        self.assertEqual(len(lint.check_text("src/a/X.cpp", [""] * (lint.MAX_LINES + 1))), 1)
        self.assertEqual(lint.check_text("src/a/X.cpp", [""] * lint.MAX_LINES), [])
        self.assertEqual(len(lint.check_text("src/a/X.h", ["#pragma once"])), 1)

    def test_an_operation_without_the_gate_is_found(self):
        api = {"simwin/a/api.h": lint.declared_operations(["BOOL CloseIt(HANDLE handle); // closes", "DWORD WINAPI Ask();"])}
        self.assertEqual(api["simwin/a/api.h"], {"CloseIt", "Ask"})
        self.assertEqual(whys(lint.check_gates(api, {"x": ['SIM_CALL("Ask", "");']})),
                         ["operation CloseIt does not pass the gate"])

    def test_words_that_do_not_belong_are_found(self):
        self.assertEqual(len(lint.check_words("README.md", ["see Part 1" + ".2"])), 1)
        self.assertEqual(lint.check_words("README.md", ["a part of it"]), [])

    def test_a_comment_that_reads_as_translated_is_found(self):
        for path, line in [
            ("src/a/X.cpp", "int a; // the zero behind the text"), ("src/a/X.h", "// the road of an arrival"),
            ("docs/a.md", "the user is told"), ("tests/a.toml", "a = 1 # goes on"), ("quill", "# for ever"),
            ("src/a/X.cpp", "// the list cannot be had"), ("docs/a.md", "what stands in front of it"),
            ("src/a/X.cpp", "// step 8 of the main list"),
        ]:
            self.assertEqual(len(lint.check_plain(path, [line])), 1, line)
        for path, line in [
            ("src/a/X.cpp", 'WriteLog(2, "leave zombie %s behind", name);'), ("src/a/X.cpp", '// logs "told" and `road`'),
            ("src/a/X.cpp", "// a PCI device behind a bridge"), ("src/a/X.cpp", "// The object behind a handle."),
            ("src/a/X.cpp", "// the link that its driver left\n// behind"), ("docs/a.md", "```\nroad\n```"),
        ]:
            self.assertEqual(lint.check_plain(path, line.split("\n")), [], line)

    def test_a_path_that_a_document_invents_is_found(self):
        there = {"src/a/X.cpp", "tests/"}.__contains__
        self.assertEqual(lint.check_paths("README.md", ["see `src/a/X.cpp` and `tests/`"], there), [])
        self.assertEqual(len(lint.check_paths("README.md", ["see `src/a/Y.cpp`"], there)), 1)

    def test_an_orphan_is_found_in_every_root(self):
        files = lint.tracked()
        texts = {path: lint.read(path) for path in files if path.endswith(lint.MAY_NAME) or "." not in path.rsplit("/", 1)[-1]}
        self.assertEqual(lint.check_unused(files, texts), [])
        own = "Or" "phan" + str(len(files)) # a name that no file has
        globbed = ("src", "simwin", "rehearse") # whatever .cpp lies there is built
        planted = [f"{root}/{own}{ending}" for root in lint.CODE_ROOTS for ending in (".h", ".py", ".cpp")
                   if ending != ".cpp" or root not in globbed]
        planted += [f"tests/rehearse/{own}.toml", f"tests/scenarios/parts/{own}.toml", f"tests/unit/{own}.cpp",
                    f"tests/windows/bed/{own}.cpp", f"packaging/{own}.cpp", f"lint/{own}.py"]
        for orphan in planted:
            self.assertEqual([path for path, _, _ in lint.check_unused([*files, orphan], texts)], [orphan])


if __name__ == "__main__":
    unittest.main()
