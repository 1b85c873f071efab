// The module's functions, called from an embedded interpreter with arguments and arrays of every
// kind. A call returns, or raises what the documents say.
#include "embedded_python.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <span>
#include <vector>

#include "hostile_arrays.h"
#include "support/random.h"

// No input reaches another process: there is no host, and no connection is made.
extern "C" hostent* gethostbyname(const char* /*name*/) { return nullptr; }

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Fuzzing;

// None at which the sparse filter makes long lists.
constexpr unsigned long sizes[] = {0, 1, 2, 3, 4, 64, 65, 1UL << 32, ~0UL};
const RecordShape shape{.qubits = 3, .sizes = sizes};

/// A function, and what its arguments are: h a handle, A amplitudes, I indices, R records and their
/// count, u a number, d a double, i an integer, t a filter's type name, s a text, o mostly zero.
struct Function {
    const char* name;
    const char* arguments;
};

// The order is part of the corpus.
constexpr Function functions[] = {
    {"put_instructions", "hR"},
    {"pull_state", "hA"},
    {"pull_state_specific", "hAu"},
    {"push_state", "hAu"},
    {"check_state", "hAdi"},
    {"override_state_buffer", "hA"},
    {"new_native_filter", "t"},
    {"delete_native_filter", "h"},
    {"set_random", "h"},
    {"normalize", "h"},
    {"pps", "huu"},
    {"postselect", "huu"},
    {"peek_num_nonzero_terms", "h"},
    {"peek_n_biggest_terms", "huIA"},
    {"peek_value", "huA"},
    {"random_seed", "hu"},
    {"peek_read_probability", "huud"},
    {"fetch_read_result", "hiu"},
    {"setup_sim_params", "hooouooo"},
    {"enable_qubit_debugging", "hu"},
    {"finish", "h"},
    {"connect", "hsid"},
    {"disconnect", "h"},
    {"get_status", "h"},
    {"get_next_event", "h"},
    {"put_instructions", "hR"},
    {"put_instructions", "hR"},
};

/// An object of another type than any argument, or a number outside its range.
Object decode_misfit(ByteReader& in) {
    switch (in.below(8)) {
        case 0:
            return Object(Py_NewRef(Py_None));
        case 1:
            return Object(PyFloat_FromDouble(in.number()));
        case 2:
            return Object(PyLong_FromUnsignedLong(in.word()));
        case 3:
            return Object(PyLong_FromLong(-1 - static_cast<long>(in.byte())));
        case 4:
            return Object(PyBytes_FromString("bytes"));
        case 5:
            return Object(PyList_New(0));
        case 6:
            return Object(PyUnicode_FromString("text"));
        default:
            return decode_array(in);
    }
}

/// The filters of one input, and its calls.
class Session {
  public:
    ~Session() {
        for (const unsigned long handle : handles_) {
            const Object deleted(
                PyObject_CallMethod(engine_module(), "delete_native_filter", "k", handle));
            PyErr_Clear();
        }
    }

    void make_call(ByteReader& in) {
        const Function& function = in.one_of(functions);
        std::vector<Object> arguments = decode_arguments(function.arguments, in);
        // Sometimes one too few.
        if (in.byte() >= 0xF8) arguments.pop_back();
        Object tuple(PyTuple_New(static_cast<Py_ssize_t>(arguments.size())));
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i), arguments[i].release());
        }
        const Object callable(PyObject_GetAttrString(engine_module(), function.name));
        const Object result(PyObject_CallObject(callable.get(), tuple.get()));
        if (!result) return require_documented_error(function.name);
        if (function.arguments[0] == 't') handles_.push_back(PyLong_AsUnsignedLong(result.get()));
    }

    void make_filter(const char* type) {
        const Object made(PyObject_CallMethod(engine_module(), "new_native_filter", "s", type));
        handles_.push_back(PyLong_AsUnsignedLong(made.get()));
    }

  private:
    std::vector<Object> decode_arguments(const char* kinds, ByteReader& in) {
        std::vector<Object> arguments;
        for (const char* kind = kinds; *kind != '\0'; ++kind) {
            const unsigned choice = in.byte();
            arguments.push_back(choice >= 0xF0 ? decode_misfit(in) : decode_one(*kind, in));
            if (*kind == 'R') {
                const Py_ssize_t count = first_length(arguments.back().get());
                arguments.emplace_back(PyLong_FromSsize_t(choice == 0xEF ? count + 1 : count));
            }
        }
        return arguments;
    }

    Object decode_one(char kind, ByteReader& in) {
        constexpr const char* types[] = {"StreamQPU",
                                         "StreamSparseQPU",
                                         "StreamBitQPU",
                                         "StreamCliffordQPU",
                                         "StreamConnect",
                                         "another",
                                         ""};
        constexpr const char* texts[] = {"127.0.0.1", "", "host", "\xc3\xa9", "a b"};
        switch (kind) {
            case 'h':
                return decode_handle(in);
            case 'A':
                return in.byte() < 0xA0 ? decode_amplitude_array(in) : decode_array(in);
            case 'I':
                return decode_array(in);
            case 'R':
                return decode_record_array(in, shape);
            case 'u':
                return Object(PyLong_FromUnsignedLong(decode_mask(in, shape, in.byte())));
            case 'd':
                return Object(PyFloat_FromDouble(decode_angle(in)));
            case 'i':
                return Object(PyLong_FromLong(decode_flag(in)));
            case 't':
                return Object(PyUnicode_FromString(in.one_of(types)));
            case 's':
                return Object(PyUnicode_FromString(in.one_of(texts)));
            default:
                return Object(PyLong_FromLong(in.byte() >= 0xE8 ? in.below(4) : 0));
        }
    }

    Object decode_handle(ByteReader& in) const {
        const unsigned choice = in.byte();
        if (choice < 0xF0 && !handles_.empty()) {
            return Object(PyLong_FromUnsignedLong(handles_[choice % handles_.size()]));
        }
        return Object(PyLong_FromUnsignedLong(choice));
    }

    /// A SystemError with the RuntimeError attached, or an error of building the result.
    static void require_documented_error(const char* name) {
        PyObject* type = nullptr;
        PyObject* value = nullptr;
        PyObject* trace = nullptr;
        PyErr_Fetch(&type, &value, &trace);
        PyErr_NormalizeException(&type, &value, &trace);
        const Object owned_type(type);
        const Object owned_value(value);
        const Object owned_trace(trace);
        const Object cause(value == nullptr ? nullptr : PyException_GetCause(value));
        if (type != nullptr && PyErr_GivenExceptionMatches(type, PyExc_SystemError) != 0 && cause &&
            PyErr_GivenExceptionMatches(cause.get(), PyExc_RuntimeError) != 0) {
            return;
        }
        std::fprintf(stderr, "%s raises another error than is documented\n", name);
        PyErr_Display(type, value, trace);
        std::abort();
    }

    std::vector<unsigned long> handles_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr const char* types[] = {"StreamQPU", "StreamSparseQPU", "StreamBitQPU",
                                     "StreamCliffordQPU", "StreamConnect"};
    constexpr int most_calls = 16;
    static const bool loaded = [] {
        engine_module();
        load_numpy();
        return true;
    }();
    if (!loaded) return 0;
    ByteReader in(data, size);
    set_random_seed(20261122);
    Session session;
    session.make_filter(in.one_of(types));
    for (int i = 0; i < most_calls && !in.empty(); ++i) session.make_call(in);
    return 0;
}
