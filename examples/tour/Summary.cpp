// The end of the tour: all findings in one line.
#include "Summary.h"

#include <cstddef>
#include <cstdio>

int summarise(const std::vector<Findings>& steps, double seconds)
{
    unsigned int checks = 0;
    std::size_t failures = 0;
    std::string figures;
    for (std::size_t index = 0; index < steps.size(); ++index) {
        checks += steps[index].checks();
        failures += steps[index].failures().size();
        for (const std::string& figure : steps[index].figures())
            figures += figure + ", ";
        for (const std::string& failure : steps[index].failures())
            std::printf("Step %zu went wrong; this should be so: %s.\n", index + 1, failure.c_str());
    }
    std::printf("Summary: %zu steps, %u checks, %zu failed; %s%.2f s.\n", steps.size(), checks, failures,
                figures.c_str(), seconds);
    return failures == 0 ? 0 : 1;
}
