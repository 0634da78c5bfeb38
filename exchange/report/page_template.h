#pragma once

#include <string_view>

namespace voalgo {

/// The page without its data, from report/web/dist/report.html.
std::string_view ReportTemplate();

} // namespace voalgo
