// Tests between the hosts of a lab.
#ifndef KXPAL_TESTS_LAB_TEST_H
#define KXPAL_TESTS_LAB_TEST_H

#include <gtest/gtest.h>

#include <vector>

#include "NetworkLab.h"

/// A test with a lab of its own, which is skipped with the reason where there can be none.
class LabTest : public ::testing::Test {
protected:
    /// @param interfaces  how many interfaces each host has
    explicit LabTest(const std::vector<int>& interfaces) : _lab(interfaces) {}

    void SetUp() override
    {
        if (!_lab.reason().empty())
            GTEST_SKIP() << _lab.reason();
    }

    const NetworkLab& lab() const { return _lab; }

private:
    const NetworkLab _lab;
};

#endif
