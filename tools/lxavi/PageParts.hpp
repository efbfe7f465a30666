// The parts of the page that `lxavi report` writes. Places of the form @NAME@ are to be filled in.

#pragma once

#include <string_view>

namespace lxavi {

extern const std::string_view kPageHtml;
extern const std::string_view kPageStyle;
extern const std::string_view kPageScript;

} // namespace lxavi
