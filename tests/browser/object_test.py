"""What a page's script sees of the plug-in object."""
from harness import CORP_HOST, BrowserTestCase, both_places
from server import HERE

REFUSED = HERE / "pages" / "refused.html"


class Cases(BrowserTestCase):
    def test_a_page_reads_enumerates_and_gets_every_refusal_as_an_error(self):
        browser = self.open((HERE / "pages" / "object.html", "https://www.murmel.example/"))
        self.assertEqual("5.1.7.0", browser.report("version"))
        # A loop over the names asks the plug-in about every name of the element; the browser
        # engine never asks it for a list.
        self.assertEqual(["onmessage", "onerror", "version", "send"], browser.report("names"))
        self.assertTrue(browser.report("enumerated"))
        self.assertEqual(["undefined", "undefined"], browser.report("unset"))
        self.assertEqual({
            "setVersion": "cannot set property version",
            "setHandlerToNumber": "Passed unexpected type for onmessasge_callback",
            "setErrorHandlerToText": "Passed unexpected type for onerror_callback",
            "sendNothing": "Invalid argument count for method send",
            "sendTwo": "Invalid argument count for method send",
            "sendNumber": "Invalid argument type for method send",
            "sendForged": "Method call not allowed",
            "sendEarly": "Send returned false",
        }, browser.report("thrown"))
        self.assertEqual([True, "nothing thrown", None, "nothing thrown", "undefined"],
                         browser.report("handlers"))
        self.assertEqual("5.1.7.0", browser.report("object"))
        self.assertEqual(0, browser.wait())

    def test_a_page_of_another_host_gets_no_object_and_no_engine(self):
        self.assert_refused(self.open((REFUSED, "https://elsewhere.example/")))

    def test_a_standard_host_over_plain_http_gets_no_object_and_no_engine(self):
        self.assert_refused(self.open((REFUSED, "http://www.murmel.example/")))

    def test_a_corporate_host_is_served_only_while_the_option_says_so(self):
        self.assertEqual("5.1.7.0", self.open("object.html").report("version"))
        options = self.profile.folder / "options"
        options.write_text(options.read_text().replace("corp_host=1", "corp_host=0"))
        self.assert_refused(self.open("refused.html"))
        self.assertIn(f"http://{CORP_HOST}/refused.html is not an allowed URL.",
                      self.profile.log.read_text())

    def assert_refused(self, browser):
        self.assertEqual([False, "undefined", "undefined"], browser.report("refused"))
        self.assertEqual(0, browser.wait())
        self.assertNotIn("report text", browser.said())
        self.assertEqual([], self.profile.engines())
        self.assertFalse(self.profile.port_file.exists())


OwnProcessObjectTest, PageProcessObjectTest = both_places("ObjectTest", Cases)
del Cases
