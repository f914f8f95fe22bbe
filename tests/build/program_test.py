"""The program as the release preset builds it: hardened, and installed without its symbols."""

import json
import os
import tempfile
import unittest

from support import BUILD, PROGRAM, PROJECT, BuildTest, main

BUILT = os.path.join(BUILD, PROGRAM)
SOURCES = tuple(os.path.join(place, "src", "") for place in (PROJECT, BUILD))  # a layer is one file of the build's


class Hardening(BuildTest):
    def elf(self, *options):
        return self.assert_succeeds("readelf", "--wide", *options, BUILT)

    def test_the_program_is_position_independent(self):
        self.assertRegex(self.elf("--file-header"), r"Type: +DYN \(Position-Independent Executable file\)")

    def test_every_symbol_is_bound_before_the_tables_become_read_only(self):
        self.assertIn("GNU_RELRO", self.elf("--segments"))
        self.assertRegex(self.elf("--dynamic"), r"FLAGS\) +BIND_NOW")

    def test_the_stack_is_protected_and_not_executable(self):
        self.assertIn("__stack_chk_fail@", self.elf("--dyn-syms"))
        self.assertRegex(self.elf("--segments"), r"GNU_STACK( +0x0+)+ RW +0x")

    def test_calls_of_the_c_library_are_fortified(self):
        # None of them is called that the C library has a checked form of; one that will be has to become that.
        with open(os.path.join(BUILD, "compile_commands.json"), encoding="utf-8") as file:
            product = [entry["command"] for entry in json.load(file) if entry["file"].startswith(SOURCES)]
        self.assertTrue(product)
        for command in product:
            self.assertRegex(command, " -D_FORTIFY_SOURCE=[23] ")
            self.assertRegex(command, " -O[123s] ")

    @unittest.skipUnless(os.uname().machine == "x86_64", "other processors have other instructions for it")
    def test_functions_begin_with_a_branch_target(self):
        code = self.assert_succeeds("objdump", "--disassemble=main", "--no-show-raw-insn", BUILT)
        self.assertRegex(code, r"<main>:\n +[0-9a-f]+:\tendbr64")


class Installing(BuildTest):
    def test_stripping_leaves_no_symbols_and_no_debugging_information(self):
        with tempfile.TemporaryDirectory() as stage:
            self.assert_succeeds("cmake", "--install", BUILD, "--strip", "--prefix", "/usr",
                                 environment={"DESTDIR": stage})
            installed = os.path.join(stage, "usr", "bin", PROGRAM)
            sections = self.assert_succeeds("readelf", "--wide", "--section-headers", installed)
            self.assertNotIn(".symtab", sections)
            self.assertNotIn(".debug_", sections)
            self.assertIn(".symtab", self.assert_succeeds("readelf", "--wide", "--section-headers", BUILT))


main()
