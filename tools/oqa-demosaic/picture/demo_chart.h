// A synthetic colour test chart and its Bayer mosaic, so the tool can show
// the library at work without any input file.
#ifndef OQA_TOOLS_DEMO_CHART_H
#define OQA_TOOLS_DEMO_CHART_H

#include "mosaic_image.h"

namespace oqa_tool {

// RGB-interleaved chart: colour bars, smooth gradients, a zone plate up to
// the Nyquist frequency and fine text-like detail. Any size from 2x2 up.
Colour_image make_demo_chart(int width, int height);

// Keeps, at each pixel, the chart's sample of the colour that the pattern
// (pixel (0, 0) has `phase`) puts there.
Mosaic_image mosaic_of(const Colour_image& chart, QN_COLOR_FILTER_ARRAY_PHASE phase);

}  // namespace oqa_tool

#endif  // OQA_TOOLS_DEMO_CHART_H
