/// Macros that test the engine's failures.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

/// Runs a statement and expects a std::runtime_error of exactly this text.
#define EXPECT_FAILURE(statement, text)                       \
    do {                                                      \
        try {                                                 \
            statement;                                        \
            ADD_FAILURE() << "no exception from " #statement; \
        } catch (const std::runtime_error& error) {           \
            EXPECT_EQ(std::string(error.what()), text);       \
        }                                                     \
    } while (false)
