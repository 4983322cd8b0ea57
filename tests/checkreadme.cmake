file(READ "${SOURCE_DIR}/examples/stream_reply.cpp" example)
file(READ "${SOURCE_DIR}/README.md" readme)

string(FIND "${example}" "int main(" begin)
string(SUBSTRING "${example}" ${begin} -1 main_function)
string(FIND "${readme}" "```cpp\n${main_function}```" place)
if(begin EQUAL -1 OR place EQUAL -1)
    message(FATAL_ERROR "The code in README.md is not the main function of examples/stream_reply.cpp")
endif()
