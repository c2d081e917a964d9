// Turns a page that lies in a folder into one text that can be shown under any address.
#ifndef MPBP_BROWSER_LOCAL_PAGE_H_
#define MPBP_BROWSER_LOCAL_PAGE_H_

#include <QString>

namespace mpbp {

// Reads the HTML file at `path` and puts the local files that its elements
//   <link … href="FILE">,  <script … src="FILE">  and  <img … src="FILE">
// name in the place of these names, as data: addresses with a parameter "name". No server stands
// behind the address that the page is shown under, so the browser could not fetch them. FILE is
// relative to the page's folder and lies in it or below; what begins with a scheme or a slash is
// left alone, and so is what other elements, style sheets and scripts name.
// Returns false and a message for the user when a file cannot be read or lies elsewhere, or when
// the result is longer than the browser engine takes.
[[nodiscard]] bool ReadLocalPage(const QString& path, QString* html, QString* error);

}  // namespace mpbp

#endif  // MPBP_BROWSER_LOCAL_PAGE_H_
