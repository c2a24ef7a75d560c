#pragma once
// The geometry shared by layers with a contentsCenter and resizable images: along each axis an
// image splits into a start cap, a middle and an end cap. The caps keep their size, shrunk
// together when the destination is too short for both; the middle takes what is left.
#include <algorithm>
#include <array>

namespace platform::detail {

struct NinePartSpan {
    double srcStart = 0, srcLength = 0;  // pixels of the image
    double dstStart = 0, dstLength = 0;  // user space
    bool middle = false;
};

// `capStart` and `capEnd` are in pixels; `pointsPerPixel` is 1 / scale.
inline std::array<NinePartSpan, 3> ninePartSpans(double srcLength, double capStart, double capEnd,
                                                 double pointsPerPixel, double dstStart, double dstLength) {
    capStart = std::max(0.0, capStart);
    capEnd = std::max(0.0, capEnd);
    if (capStart + capEnd > srcLength && capStart + capEnd > 0) {
        const double fit = srcLength / (capStart + capEnd);
        capStart *= fit;
        capEnd *= fit;
    }
    double dstCapStart = capStart * pointsPerPixel;
    double dstCapEnd = capEnd * pointsPerPixel;
    if (dstCapStart + dstCapEnd > dstLength && dstCapStart + dstCapEnd > 0) {
        const double fit = std::max(0.0, dstLength) / (dstCapStart + dstCapEnd);
        dstCapStart *= fit;
        dstCapEnd *= fit;
    }
    const double middleSrc = srcLength - capStart - capEnd;
    const double middleDst = std::max(0.0, dstLength - dstCapStart - dstCapEnd);
    return {{
        {0, capStart, dstStart, dstCapStart, false},
        {capStart, middleSrc, dstStart + dstCapStart, middleDst, true},
        {srcLength - capEnd, capEnd, dstStart + dstCapStart + middleDst, dstCapEnd, false},
    }};
}

}  // namespace platform::detail
