# Runs PROGRAM with the arguments that follow "--" in FOLDER, and compares its status with STATUS and all that it
# prints with the files output and error there. It reads the file input.
cmake_minimum_required(VERSION 3.22)

set(arguments)
set(position 0)
while(NOT CMAKE_ARGV${position} STREQUAL "--")
    math(EXPR position "${position} + 1")
endwhile()
math(EXPR position "${position} + 1")
while(position LESS CMAKE_ARGC)
    list(APPEND arguments "${CMAKE_ARGV${position}}")
    math(EXPR position "${position} + 1")
endwhile()

# The current folder is the first place where profiles are looked for, so nobody's own service is asked.
file(WRITE "${FOLDER}/orvane.local.json" "{\"provider\": \"mock\"}\n")
foreach(variable OPENAI_API_KEY DEEPSEEK_API_KEY QT_MESSAGE_PATTERN QT_LOGGING_RULES)
    unset(ENV{${variable}})
endforeach()
set(ENV{QT_FORCE_STDERR_LOGGING} 1)

execute_process(COMMAND "${PROGRAM}" ${arguments}
    WORKING_DIRECTORY "${FOLDER}"
    INPUT_FILE "${FOLDER}/input"
    OUTPUT_VARIABLE output
    ERROR_VARIABLE error
    RESULT_VARIABLE status)
file(READ "${FOLDER}/output" expected_output)
file(READ "${FOLDER}/error" expected_error)
if(NOT status STREQUAL STATUS OR NOT output STREQUAL expected_output OR NOT error STREQUAL expected_error)
    message(FATAL_ERROR "Expected status ${STATUS}, got ${status}.\n"
        "Expected output:\n[${expected_output}]\nActual output:\n[${output}]\n"
        "Expected errors:\n[${expected_error}]\nActual errors:\n[${error}]")
endif()
