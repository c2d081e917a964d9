"""What `cmake --install` puts below a prefix works from there."""
import json
import os
import pathlib
import subprocess
import tempfile
import unittest

BUILD = pathlib.Path(os.environ["MPBP_BUILD_DIR"])
MANIFEST = "native-messaging-hosts/example.murmel.parl.json"


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="mpbp-install-test-")
        cls.addClassCleanup(folder.cleanup)
        cls.top = pathlib.Path(folder.name).resolve()
        cls.prefix = cls.top / "a prefix"
        cls.environment = dict(os.environ, HOME=str(cls.top),
                               XDG_CONFIG_HOME=str(cls.top / "config"))
        subprocess.run(["cmake", "--install", BUILD, "--prefix", cls.prefix],
                       check=True, capture_output=True)

    def run_installed(self, name, *words):
        result = subprocess.run([self.prefix / "bin" / name, *words], env=self.environment,
                                text=True, capture_output=True, timeout=120, check=False)
        self.assertEqual(0, result.returncode, result.stdout + result.stderr)
        return result.stdout

    def test_the_host_manifests_are_those_of_the_connector_that_is_installed(self):
        for kind, folder in ("chromium", "etc/chromium"), ("firefox", "lib/mozilla"):
            manifest = (self.prefix / folder / MANIFEST).read_text()
            self.assertEqual(self.run_installed("mpbp-connector", "--manifest", kind), manifest)
            program = pathlib.Path(json.loads(manifest)["path"])
            self.assertIn(self.prefix, program.parents)
            version = subprocess.run([program, "--version"], capture_output=True, check=True)
            self.assertRegex(version.stdout, rb"^\d+\.\d+\.\d+\.\d+\n$")

    def test_the_manifests_are_for_the_ids_of_the_extension(self):
        extension = self.prefix / "share/murmel-parl-plugin/extension"
        manifest = json.loads((extension / "manifest.json").read_text())
        firefox = json.loads((self.prefix / "lib/mozilla" / MANIFEST).read_text())
        self.assertEqual([manifest["browser_specific_settings"]["gecko"]["id"]],
                         firefox["allowed_extensions"])
        chromium = json.loads((self.prefix / "etc/chromium" / MANIFEST).read_text())
        policies = self.prefix / "share/doc/murmel-parl-plugin/examples/policies"
        policy = json.loads((policies / "chromium.json").read_text())
        extension_id = policy["ExtensionInstallForcelist"][0].partition(";")[0]
        self.assertEqual([f"chrome-extension://{extension_id}/"], chromium["allowed_origins"])
        self.assertIn(f'"{extension_id}"', (policies / "updates.xml").read_text())
        policy = json.loads((policies / "firefox.json").read_text())["policies"]
        ((gecko_id, settings),) = policy["ExtensionSettings"].items()
        self.assertEqual(firefox["allowed_extensions"], [gecko_id])
        file = self.prefix / settings["install_url"].removeprefix("file:///usr/")
        self.assertTrue(file.exists(), file)

    def test_module_and_engine_work_from_the_prefix(self):
        folder = self.top / "profile/murmel-murmelparlplugin"
        folder.mkdir(parents=True)
        engine = self.prefix / "lib/murmel-parl-plugin/engine"
        (folder / "options").write_text(f"install_dir={engine}\n")
        with subprocess.Popen([self.prefix / "bin/mpbp-host", "--profile", folder.parent],
                              env=self.environment, text=True, stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as host:
            host.stdin.write('["echo","from the prefix"]\n')
            host.stdin.flush()
            echo = next((line for line in host.stdout if "from the prefix" in line), None)
            self.assertIsNotNone(echo)
            host.communicate('["quit"]\n')
        self.assertEqual(0, host.returncode)

    def test_every_page_and_program_is_there_and_no_link_leads_nowhere(self):
        files = [path for path in self.prefix.rglob("*") if not path.is_dir()]
        self.assertEqual([], [path for path in files if not path.exists()])
        pages = {path.stem for path in (self.prefix / "share/man").rglob("*.1")}
        self.assertEqual(pages - {"MurmelParlPlugin"}, set(os.listdir(self.prefix / "bin")))
        example = self.prefix / "lib/murmel-parl-plugin/examples/console/index.html"
        self.assertTrue(example.exists())


if __name__ == "__main__":
    unittest.main()
