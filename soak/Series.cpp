// Measurements of one kind in the course of time.
#include "Series.h"

#include <algorithm>

namespace {

constexpr std::size_t leastEach = 8;  // measurements in a third, for a median that a single one does not move

}  // namespace

Series::Series(std::size_t roomFor, double leastGrowth, double growthShare)
    : _leastGrowth(leastGrowth), _growthShare(growthShare)
{
    _values.reserve(roomFor);
}

bool Series::isLongEnough() const
{
    return _values.size() >= 3 * leastEach;
}

double Series::tolerance() const
{
    return std::max(_leastGrowth, before() * _growthShare);
}

double Series::Median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double Series::median(std::size_t third) const
{
    const auto begin = _values.begin() + static_cast<std::ptrdiff_t>(_values.size() * third / 3);
    const auto end = _values.begin() + static_cast<std::ptrdiff_t>(_values.size() * (third + 1) / 3);
    return Median({begin, end});
}
