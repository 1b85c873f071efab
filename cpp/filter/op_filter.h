/// `OpFilter`, the base of every consumer of instruction records, and the registry of all filters.
#pragma once

#include <limits>
#include <map>
#include <string>
#include <vector>

#include "filter/qpu_op.h"
#include "filter/state/op_event.h"
#include "support/complex.h"

namespace Nimbrel {

class QPU;
class QPU_Base;

/// What is known of the arrays that a call brings and its arguments do not tell. A caller that says
/// nothing vouches for its arrays.
struct CallerArrays {
    unsigned long amplitudes = std::numeric_limits<unsigned long>::max();  ///< room for so many
    unsigned long indices = std::numeric_limits<unsigned long>::max();
    bool writable = true;
};

/// One instruction consumer. Filters do not chain: each stands alone with its own register, and
/// Python decides which one gets which array.
///
/// A filter owns its `QPU`. The registry only points at filters; `delete_filter` ends them. All
/// calls come from Python threads that hold the interpreter lock, so nothing here has a lock.
///
/// The virtual operations stand in slot order. What a class leaves out answers as the base does:
/// most of it with an error, some of it with a harmless value.
class OpFilter {
  public:
    /// Makes the register, takes the next handle and enters the filter into the registry, so a
    /// filter can be found before its derived constructor has run.
    OpFilter();
    virtual ~OpFilter();
    OpFilter(const OpFilter&) = delete;
    OpFilter& operator=(const OpFilter&) = delete;

    /// Runs the records in order. A failure leaves by exception at once; the records before it have
    /// taken effect.
    virtual void put_instructions(const QPUOp* ops, unsigned long num_ops) = 0;

    virtual void connect(const std::string& host, int port, double timeout, std::string& result);
    virtual void disconnect(std::string& result);
    virtual void get_status(std::string& result);

    virtual void pull_state(complex_t* dest, std::string& info, unsigned long num_terms);
    virtual void pull_state_specific(std::string& info, complex_t* dest, unsigned long num_terms,
                                     unsigned long selector);
    virtual void push_state(const complex_t* src, unsigned long selector, unsigned long num_terms);
    virtual void override_state_buffer(complex_t* buffer, unsigned long num_qubits);

    virtual double peek_read_probability(unsigned long value, unsigned long mask, double limit);
    virtual void postselect(unsigned long value, unsigned long mask);
    virtual unsigned long peek_num_nonzero_terms();
    virtual double normalize();
    virtual int check_state(const complex_t* expected, double tolerance, bool flag) const;
    virtual double pps(unsigned long x_mask, unsigned long z_mask);
    virtual void peek_n_biggest_terms(unsigned long count, unsigned long* indices,
                                      complex_t* amplitudes);
    virtual void peek_value(unsigned long index, complex_t* dest);

    virtual void finish();
    virtual void set_random();

    /// The filter of a handle, or null.
    static OpFilter* get_filter(unsigned long handle);

    /// Destroys a filter and all it owns. An unknown handle does nothing.
    static void delete_filter(unsigned long handle);

    /// A new filter of a type name; throws for a name that is not in the factory's table. The other
    /// arguments have no effect. Defined with the factory, above all concrete filters.
    static OpFilter* AllocateNew(QPU_Base* qpu, const char* type_name, unsigned long,
                                 unsigned long);

    /// Queues a report for Python with a copy of the events that are open now.
    void queue_event(std::string name, std::string message, unsigned int code, unsigned long aux);

    QPU* qpu = nullptr;                        ///< owned
    std::vector<unsigned long> reserved_list;  ///< part of the layout, always empty
    unsigned long handle = 0;                  ///< what Python names this filter by
    OpEventStack event_stack;                  ///< survives a reset of the register
    std::vector<OpEvent> events;               ///< reports that wait for Python, oldest first
    CallerArrays caller_arrays;                ///< set for the time of one call, by the binding

    /// Every filter by handle. At process exit only the map goes, not the filters.
    static std::map<unsigned long, OpFilter*> filter_registry;

    /// Only grows, so that no handle ever names a second filter; 0 names none.
    static unsigned long next_native_handle;
};

}  // namespace Nimbrel
