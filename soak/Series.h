// Measurements of one kind in the course of time.
#ifndef SOAK_SERIES_H
#define SOAK_SERIES_H

#include <cstddef>
#include <vector>

/// Measurements that are to be flat once the host is warm: the median of the last third must not be above that of the
/// second third by more than a tolerance.
class Series {
public:
    /// @param roomFor      measurements; so that a long run does not grow by them
    /// @param leastGrowth  that counts as growth whatever the size
    /// @param growthShare  of the second third's median that counts as growth; the larger of both limits holds
    Series(std::size_t roomFor, double leastGrowth, double growthShare);

    void add(double value) { _values.push_back(value); }
    /// @return whether there are enough measurements to judge
    bool isLongEnough() const;
    double before() const { return median(1); }
    double after() const { return median(2); }
    /// @return by how much it may grow
    double tolerance() const;
    bool isFlat() const { return after() <= before() + tolerance(); }

    static double Median(std::vector<double> values);

private:
    double median(std::size_t third) const;

    const double _leastGrowth;
    const double _growthShare;
    std::vector<double> _values;
};

#endif
