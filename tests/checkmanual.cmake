# Builds a manual of one file with the settings of the real one: whole, then with each kind of gap in it.

set(documented_header [[
/// A namespace.
namespace Sample {

/// A class.
class QTAGENT_EXPORT Counter : public QObject
{
    Q_OBJECT

public:
    /// A constructor.
    explicit Counter(QObject *parent = nullptr);

    /// A member function.
    void add(int first, int second);

public Q_SLOTS:
    /// A slot.
    void reset();

Q_SIGNALS:
    /// A signal.
    void changed();
};

/// A structure.
struct Range
{
    /// A member.
    int from = 0;
};

/// An enumeration.
enum class Direction {
    /// A value.
    Up,
};

/// A type.
using Count = int;

/// A free function.
Count countAll();

} // namespace Sample
]])

# Sets report to what was found wrong, or to nothing.
function(build_manual file content)
    file(REMOVE_RECURSE "${WORK_DIR}")
    file(WRITE "${WORK_DIR}/${file}" "${content}")
    file(READ "${DOXYFILE}" settings)
    # Every page is filtered as README.md is.
    string(REGEX REPLACE "\"[^\"=]*/README.md=" "\"*.md=" settings "${settings}")
    file(WRITE "${WORK_DIR}/Doxyfile" "${settings}
        INPUT = \"${WORK_DIR}/${file}\"
        OUTPUT_DIRECTORY = \"${WORK_DIR}\"
        USE_MDFILE_AS_MAINPAGE =
        ")
    execute_process(COMMAND "${DOXYGEN}" "${WORK_DIR}/Doxyfile"
        RESULT_VARIABLE status ERROR_VARIABLE errors)
    if(status EQUAL 0)
        execute_process(COMMAND "${CMAKE_COMMAND}" -D "MANUAL_DIR=${WORK_DIR}" -P "${FIND_GAPS}"
            RESULT_VARIABLE status ERROR_VARIABLE errors)
    endif()
    if(status EQUAL 0)
        set(errors "")
    elseif(NOT errors)
        set(errors "no reason (${status})")
    endif()
    set(report "${errors}" PARENT_SCOPE)
endfunction()

function(expect_success file content)
    build_manual("${file}" "${content}")
    if(report)
        message(SEND_ERROR "Refused: ${content}\n${report}")
    endif()
endfunction()

function(expect_failure file content expected)
    build_manual("${file}" "${content}")
    if(NOT report MATCHES "${expected}")
        message(SEND_ERROR "Expected \"${expected}\", reported \"${report}\" for: ${content}")
    endif()
endfunction()

function(expect_gap comment expected)
    string(REPLACE "/// ${comment}." "" header "${documented_header}")
    expect_failure(sample.h "${header}" "${expected}.* is not documented")
endfunction()

expect_success(sample.h "${documented_header}")
expect_gap("A namespace" "Namespace Sample")
expect_gap("A class" "Sample::Counter")
expect_gap("A constructor" "Counter\\(QObject \\*parent=nullptr\\)")
expect_gap("A member function" "add\\(int first, int second\\)")
expect_gap("A slot" "reset\\(\\)")
expect_gap("A signal" "changed\\(\\)")
expect_gap("A structure" "Sample::Range")
expect_gap("A member" "from \\(variable\\)")
expect_gap("An enumeration" "Direction")
expect_gap("A value" "Value Up")
expect_gap("A type" "Count")
expect_gap("A free function" "countAll\\(\\)")

string(REPLACE "namespace Sample {" "int globalCount()\; namespace Sample {" header "${documented_header}")
expect_failure(sample.h "${header}" "globalCount in sample.h stands outside of every namespace")
string(REPLACE "A member function." "A member function. @param first the one number" header "${documented_header}")
expect_failure(sample.h "${header}" "parameter .*second")
string(REPLACE "A slot." "A slot, see \\ref add2()" header "${documented_header}")
expect_failure(sample.h "${header}" "unable to resolve reference to 'add2\\(\\)'")

expect_success(page.md "# Page\n\n![Window](docs/images/window.png) [settings](../orvane.local.example.json)\n")
expect_failure(page.md "# Page\n\n[gone](gone.md)\n" "unable to resolve reference to 'page_gone'")
expect_failure(page.md "# Page\n\n[gone](../examples/gone.cpp)\n" "unable to resolve reference to 'gone.cpp'")
expect_failure(page.md "# Page\n\n[gone](gone.txt)\n" "links to gone.txt")
expect_failure(page.md "# Page\n\n![gone](images/gone.png)\n" "links to images/gone.png")
