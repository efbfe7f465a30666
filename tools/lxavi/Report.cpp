#include "Commands.hpp"

namespace lxavi {

int RunReport(const Options&, const ReportOptions&) { throw Failure("not yet"); }

} // namespace lxavi
