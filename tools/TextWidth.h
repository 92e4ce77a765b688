#pragma once

#include <string>

// TextWidth: how much room UTF-8 takes on a terminal, and how to make it take exactly so much.

// text with question marks for control characters and for bytes that are no UTF-8: what a terminal may get.
[[nodiscard]] std::string printable(const std::string& text);
// Columns of printable text: none for combining marks, two for wide signs.
[[nodiscard]] unsigned columnsOf(const std::string& text);
// Printable text in exactly so many columns: filled with blanks at its end, or cut, with an ellipsis.
[[nodiscard]] std::string fitted(const std::string& text, unsigned columns);
// The same filled at its beginning.
[[nodiscard]] std::string fittedRight(const std::string& text, unsigned columns);
