"""What scripts/setup.sh says when packages or the build fail, with programs that only play them."""
import pathlib
import shutil
import subprocess
import tempfile
import unittest

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
REAL = ("bash", "cat", "dirname", "env", "grep", "mktemp", "rm", "tail", "tr")
ROOT, USER = "echo 0", "echo 1000"
NO_NETWORK = """case "$*" in
*update*) echo "W: Failed to fetch http://d.example  Temporary failure resolving 'd.example'" ;;
*) echo 'E: Unable to locate package g++'; exit 100 ;;
esac"""
BROKEN_CODE = """case "$*" in --preset*) exit 0 ;; esac
printf '[1/9] Building good.o\\n[2/9] Building bad.o\\nFAILED: bad.o\\ng++ -c bad.cc\\n'
printf '../bad.cc:1:7: error: expected ;\\n  1 | int x\\n[3/9] Building late.o\\n'; exit 1"""


class SetupTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        for program in REAL:
            (self.folder / program).symlink_to(shutil.which(program))

    def play(self, command, **programs):
        """Runs a command of setup.sh; status, standard output and standard error."""
        for name, script in programs.items():
            file = self.folder / name.replace("_", "-")
            file.write_text(f"#!{shutil.which('bash')}\n{script}\n")
            file.chmod(0o755)
        result = subprocess.run(
            ["bash", "-c",
             f"set -euo pipefail; source '{TOP}/scripts/setup.sh'; {command}; echo went on",
             "scripts/demo"], env={"PATH": str(self.folder), "TMPDIR": str(self.folder)},
            capture_output=True, text=True, check=False)
        self.assertEqual([], list(self.folder.glob("tmp.*")), "a log stayed behind")
        return result.returncode, result.stdout, result.stderr

    def end_of(self, command, **programs):
        """The last two lines of a script that must fail."""
        status, out, err = self.play(command, **programs)
        self.assertEqual((1, ""), (status, out), err)
        return err.splitlines()[-2:]

    def test_says_why_packages_cannot_be_installed_and_how_to_install_them(self):
        missing = {"dpkg_query": "exit 1"}
        by_hand = "apt-get install --no-install-recommends g++ cmake"
        no_password = "echo 'sudo: a password is required' >&2; exit 1"
        for programs, what, remedy in (
                ({}, "no apt-get", "docs/building.md"),
                ({"apt_get": "exit 0", "id": USER}, "neither root nor sudo", "as root: " + by_hand),
                ({"sudo": no_password}, "a password is required", by_hand),
                ({"apt_get": NO_NETWORK, "id": ROOT}, "Temporary failure", "apt-get update")):
            with self.subTest(what):
                end = self.end_of("install g++ cmake g++", **missing, **programs)
                self.assertIn(what, end[0])
                self.assertIn(remedy, end[1])

    def test_installs_what_is_missing_only(self):
        calls = self.folder / "calls"
        status, out, err = self.play(
            "install there gone", id=ROOT, apt_get=f'echo "$@" >>"{calls}"',
            dpkg_query='[ "$3" = there ] && echo "install ok installed"')
        self.assertEqual((0, "went on\n"), (status, out), err)
        self.assertRegex(calls.read_text(), r"install -y --no-install-recommends gone\n$")

    def test_shows_the_whole_error_of_a_build_and_no_step_that_went_well(self):
        status, out, err = self.play("build release", cmake=BROKEN_CODE)
        self.assertEqual((1, ""), (status, out))
        self.assertIn("FAILED: bad.o\ng++ -c bad.cc\n../bad.cc:1:7: error:", err)
        self.assertIn("  1 | int x\n", err)
        self.assertNotIn("Building good.o", err)
        self.assertIn("bad.cc:1:7: error", err.splitlines()[-2])
        self.assertEqual("Try: mend it, then: cmake --build --preset release", err.splitlines()[-1])

    def test_a_build_failure_names_what_the_compiler_died_of(self):
        for line, remedy in (
                ("g++: fatal error: Killed signal terminated program cc1plus", "PARALLEL_LEVEL=1"),
                ("as: a.o: No space left on device", "space")):
            with self.subTest(line):
                end = self.end_of("build release", cmake=f"""case "$*" in --preset*) exit 0 ;; esac
                    echo FAILED: x.o; echo '{line}'; exit 1""")
                self.assertIn(line, end[0])
                self.assertIn(remedy, end[1])

    def test_a_configuration_failure_ends_with_its_error(self):
        end = self.end_of("build release", cmake="""
            printf 'CMake Error at CMakeLists.txt:3 (find):\\n  no such thing\\nend\\n'; exit 1""")
        self.assertIn("CMakeLists.txt:3 (find): no such thing", end[0])

    def test_what_goes_well_is_a_line_a_step_on_standard_error(self):
        status, out, err = self.play("build release", cmake="echo '[1/1] Building a.o'")
        self.assertEqual((0, "went on\n"), (status, out))
        lines = err.splitlines()
        self.assertEqual(3, len(lines), err)
        for line in lines:
            self.assertRegex(line, r"^\d\d:\d\d:\d\d  [\x20-\x7e]+$")

    def test_a_long_step_says_where_it_is_without_control_characters(self):
        _, _, err = self.play(
            "progress_every=0; "
            "printf '5%%\\r\\033[1m10%%\\033[0m\\nwithout an end' | follow \"$TMPDIR/kept\"")
        self.assertRegex(err, r"^\S+    \[1m10%\[0m\n\S+    without an end\n$")
        self.assertEqual(b"5%\r\033[1m10%\033[0m\nwithout an end\n",
                         (self.folder / "kept").read_bytes())


if __name__ == "__main__":
    unittest.main()
