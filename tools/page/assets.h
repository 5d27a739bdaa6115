// What a page brings along: the files of this folder and the chart library, as they were when the tool was built.
#ifndef PAGE_ASSETS_H
#define PAGE_ASSETS_H

#include <string_view>

namespace awbcal {

extern const std::string_view kChartJs;
extern const std::string_view kChartJsLicence;
extern const std::string_view kPageScript;
extern const std::string_view kPageStyle;

}  // namespace awbcal

#endif
