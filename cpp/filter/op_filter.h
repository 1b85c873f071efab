/// `OpFilter`, the base class of every consumer of instruction records, and the registry of
/// filters.
///
/// Called by the binding and by native callers on a Python thread that holds the interpreter lock,
/// so nothing here has a lock.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "filter/array_needs.h"
#include "filter/qpu_op.h"
#include "filter/state/op_event.h"
#include "filter/state/qpu_base.h"
#include "support/complex.h"

namespace Nimbrel {

class QPU;

/// One consumer of instruction records. Filters do not chain: each has its own register, and Python
/// decides which filter receives which array.
///
/// A filter owns its `QPU`. The registry only points at filters; `delete_filter` destroys them.
///
/// The virtual operations stand in slot order. An operation that a class does not override either
/// throws or returns a harmless value.
class OpFilter {
  public:
    virtual ~OpFilter();
    OpFilter(const OpFilter&) = delete;
    OpFilter& operator=(const OpFilter&) = delete;

    /// Runs the records in order. The first failure throws; the records before it have taken
    /// effect.
    virtual void put_instructions(const QPUOp* ops, unsigned long num_ops) = 0;

    virtual void connect(const std::string& host, int port, double timeout, std::string& result);
    virtual void disconnect(std::string& result);
    virtual void get_status(std::string& result);

    // Operations with arrays. They do not check the arrays: see `array_rules`.
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

    /// The filter with this handle, or null.
    static OpFilter* get_filter(unsigned long handle);

    /// Destroys a filter and all it owns. An unknown handle has no effect.
    static void delete_filter(unsigned long handle);

    /// Returns a new filter of a type name. Throws for a name that is not in the factory's table.
    /// The other arguments have no effect. Defined in the factory, which links all filter classes.
    static OpFilter* AllocateNew(QPU_Base* qpu, const char* type_name, unsigned long,
                                 unsigned long);

    /// Queues an event for Python with a copy of the events that are open now.
    void queue_event(std::string name, std::string message, unsigned int code, unsigned long aux);

    /// The register's base, for filters that use nothing else of the register.
    QPU_Base& qpu_base() const { return *register_base; }

    QPU* qpu = nullptr;                        ///< owned
    std::vector<unsigned long> reserved_list;  ///< always empty
    unsigned long handle = 0;                  ///< the number by which Python names this filter
    OpEventStack event_stack;                  ///< a reset of the register leaves it as it is
    std::vector<OpEvent> events;               ///< events that Python has not fetched, oldest first

    /// What the operations of this filter need of the caller's arrays. The binding asks before each
    /// call; a native caller is responsible for its arrays.
    const ArrayRules& array_rules;

    /// All filters by handle. At process exit the map is destroyed and the filters are not.
    static std::map<unsigned long, OpFilter*> filter_registry;

    /// The next handle. It only grows, so a handle never names a second filter; 0 names none.
    static unsigned long next_native_handle;

  protected:
    /// Creates the register, takes the next handle and enters the filter into the registry. So a
    /// filter is in the registry before the derived constructor has run.
    explicit OpFilter(const ArrayRules* rules = &no_array_rules());

  private:
    // A copy of `qpu`: this header does not know that a QPU is a QPU_Base, and a function that
    // knows it would cost a call for each record.
    QPU_Base* register_base = nullptr;
};

}  // namespace Nimbrel
