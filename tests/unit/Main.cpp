#include "tests/unit/support/Toolkit.h"

#include <gtest/gtest.h>

int main (int argc, char** argv)
{
    testing::InitGoogleTest (&argc, argv);
    restartToolkit();

    const int result = RUN_ALL_TESTS();
    toolkit.reset();
    return result;
}
