"""What a page's script sees of the plug-in object."""
import signal

from harness import CORP_HOST, PAGE, BrowserTestCase


class ObjectTest(BrowserTestCase):
    def test_a_page_reads_enumerates_and_gets_every_refusal_as_an_error(self):
        browser = self.open((PAGE, "https://www.murmel.example/?object"))
        self.expect_object(browser.report)
        self.assertEqual(0, browser.wait())

    def test_a_page_that_is_not_allowed_gets_no_object_and_no_engine(self):
        self.profile.write_options(plugin_enable_corp_host=0)
        browser = self.open((PAGE, "https://elsewhere.example/?refused"),
                            (PAGE, "http://www.murmel.example/?refused"), "refused")
        for _ in range(3):
            self.assertEqual([False, "undefined", "undefined", []], browser.report("refused"))
        self.assertEqual(0, browser.stop(signal.SIGINT))
        # Pages in several processes share the log file, and each process begins it anew; what the
        # log says on standard error stays.
        self.wait_until(lambda: f"http://{CORP_HOST}/page.html?refused is not an allowed URL.\n"
                        in browser.output(browser.log), "the refusal in the log")
        self.assertEqual([], self.profile.engines())
        self.assertFalse((self.profile.folder / "murmelparlplugin_port").exists())
