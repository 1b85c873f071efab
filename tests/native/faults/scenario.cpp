#include "faults/scenario.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdio>
#include <memory>
#include <new>
#include <stdexcept>
#include <system_error>

#include "faults/failing_memory.h"
#include "faults/failing_threads.h"
#include "support/random.h"

namespace Nimbrel::Testing {
namespace {

/// A fault at number k of what can fail.
struct Fault {
    std::string name;
    std::function<std::shared_ptr<void>(long k)> begin;
    std::function<bool()> has_occurred;
};

Fault failing_memory(Shortage shortage) {
    return {shortage == Shortage::once ? "allocation" : "all allocations from",
            [shortage](long k) { return std::make_shared<FailingMemory>(k, shortage); },
            FailingMemory::has_failed};
}

Fault failing_threads() {
    return {"threads from", [](long k) { return std::make_shared<FailingThreads>(k); },
            FailingThreads::has_failed};
}

void destroy(OpFilter* filter) {
    // A filter without a handle in the registry is the caller's.
    const unsigned long handle = filter->handle;
    OpFilter::delete_filter(handle);
    EXPECT_EQ(OpFilter::get_filter(handle), nullptr);
}

/// One scenario under one fault.
class Trial {
  public:
    /// Runs the program without a failure, which also fills what the engine keeps for the process.
    Trial(const Scenario& scenario, const Fault& fault) : scenario_(scenario), fault_(fault) {
        OpFilter* filter = scenario_.make();
        for (std::size_t i = 0; i < scenario_.steps.size(); ++i) run_step(*filter, i);
        expected_ = scenario_.seen(*filter);
        destroy(filter);
    }

    void run() {
        fail_creation();
        for (std::size_t i = 0; i < scenario_.steps.size(); ++i) {
            for (long k = 0; fail_step(i, k); ++k) {
                if (testing::Test::HasFailure()) return;
            }
        }
        EXPECT_GT(faults_seen_, 0) << "nothing has failed";
    }

  private:
    // One seed for each step, so that a step draws the same whatever was drawn before.
    void run_step(OpFilter& filter, std::size_t i) {
        set_random_seed(static_cast<unsigned>(i));
        scenario_.steps[i].act(filter);
    }

    void fail_creation() {
        bool occurred = true;
        for (long k = 0; occurred; ++k) {
            const long before = live_allocations();
            OpFilter* filter = nullptr;
            {
                const auto fault = fault_.begin(k);
                try {
                    filter = scenario_.make();
                } catch (const std::bad_alloc&) {
                    EXPECT_TRUE(fault_.has_occurred());
                }
            }
            occurred = fault_.has_occurred();
            if (filter != nullptr) destroy(filter);
            EXPECT_EQ(live_allocations(), before) << fault_.name << ' ' << k;
        }
    }

    /// Returns whether the fault has occurred.
    bool fail_step(std::size_t i, long k) {
        SCOPED_TRACE(name_of(i, k));
        const long before = live_allocations();
        go_through(i, k);
        EXPECT_EQ(live_allocations(), before);
        if (fault_.has_occurred()) ++faults_seen_;
        return fault_.has_occurred();
    }

    void go_through(std::size_t i, long k) {
        OpFilter* filter = scenario_.make();
        for (std::size_t j = 0; j < i; ++j) run_step(*filter, j);
        const std::string state = scenario_.seen(*filter);
        const bool failed = run_failing_step(*filter, i, k);
        if (failed) recover(*filter, i, state);
        for (std::size_t j = i + 1; j < scenario_.steps.size(); ++j) run_step(*filter, j);
        EXPECT_EQ(scenario_.seen(*filter), expected_);
        destroy(filter);
    }

    std::string name_of(std::size_t i, long k) const {
        return "step '" + scenario_.steps[i].name + "', " + fault_.name + " " + std::to_string(k);
    }

    /// Returns whether the step has failed. A reset also fails by a report and no register.
    bool run_failing_step(OpFilter& filter, std::size_t i, long k) {
        const auto fault = fault_.begin(k);
        try {
            run_step(filter, i);
        } catch (const std::exception& error) {
            EXPECT_TRUE(fault_.has_occurred()) << error.what();
            EXPECT_STRNE(error.what(), "");
            return true;
        }
        return scenario_.steps[i].is_reset && fault_.has_occurred() && !has_register(filter);
    }

    bool has_register(OpFilter& filter) const { return scenario_.seen(filter) != "none"; }

    void recover(OpFilter& filter, std::size_t i, const std::string& state) {
        const std::string left = scenario_.seen(filter);
        if (!scenario_.steps[i].is_reset) {
            EXPECT_EQ(left, state) << "a failed step has changed the state";
        } else if (scenario_.failed_reset == FailedReset::leaves_none) {
            EXPECT_EQ(left, "none");
            scenario_.other_reset(filter);
        } else {
            EXPECT_EQ(left, state) << "a failed reset has changed the register";
        }
        run_step(filter, i);
    }

    const Scenario& scenario_;
    const Fault& fault_;
    std::string expected_;
    long faults_seen_ = 0;
};

/// Hides what resets print when they fail, and the failures' texts with it until the end.
class HiddenOutput {
  public:
    HiddenOutput() { testing::internal::CaptureStdout(); }
    ~HiddenOutput() {
        const std::string printed = testing::internal::GetCapturedStdout();
        if (testing::Test::HasFailure()) std::fputs(printed.c_str(), stdout);
    }
    HiddenOutput(const HiddenOutput&) = delete;
    HiddenOutput& operator=(const HiddenOutput&) = delete;
};

void expect_to_survive(const Scenario& scenario, const Fault& fault) {
    const HiddenOutput hidden;
    Trial(scenario, fault).run();
}

}  // namespace

void expect_to_survive_every_failed_allocation(const Scenario& scenario) {
    for (const Shortage shortage : {Shortage::once, Shortage::lasting}) {
        expect_to_survive(scenario, failing_memory(shortage));
    }
}

void expect_to_survive_every_failed_thread(const Scenario& scenario) {
    expect_to_survive(scenario, failing_threads());
}

std::string common_state(OpFilter& filter) {
    const QPU_Base& base = filter.qpu_base();
    std::ostringstream out;
    write_values(out, base.read_flags);
    write_values(out, base.target_extensions);
    write_values(out, base.cond_extensions);
    write_values(out, base.cond_neg_extensions);
    write_values(out, filter.event_stack.ids);
    write_values(out, filter.event_stack.values);
    for (const OpEvent& event : filter.events) {
        out << event.name << event.message << event.code << '\n';
        write_values(out, event.ids);
        write_values(out, event.values);
    }
    return out.str();
}

std::string text_of(const std::vector<complex_t>& amplitudes) {
    std::ostringstream out;
    for (const complex_t& a : amplitudes) {
        out << std::hex << std::bit_cast<unsigned long>(a.re) << ' '
            << std::bit_cast<unsigned long>(a.im) << '\n';
    }
    return out.str();
}

Step record_step(const std::string& name, unsigned long opcode, const Words& words) {
    const QPUOp op = record(opcode, words);
    return {name, [op](OpFilter& filter) { filter.put_instructions(&op, 1); }, opcode == OP_RESET};
}

}  // namespace Nimbrel::Testing
