# Each example is run, and all that its user sees is compared.
if(NOT QTAGENT_BUILD_EXAMPLES)
    return()
endif()

qtagent_add_test(tst_examples QtAgent qtagent_test_support)
target_compile_definitions(tst_examples PRIVATE "EXAMPLE_DIR=\"$<TARGET_FILE_DIR:stream_reply>\"")
add_dependencies(tst_examples json_chain retrieval review_graph stream_reply)

qtagent_add_test(tst_example_custom_model QtAgent qtagent_test_support)
target_compile_definitions(tst_example_custom_model PRIVATE "CUSTOM_MODEL=\"$<TARGET_FILE:custom_model>\"")
add_dependencies(tst_example_custom_model custom_model)

qtagent_test_example(structured_answer_needs_a_service structured_answer
    STATUS 1
    ERROR "No service is configured.\n")
qtagent_add_test(tst_example_structured_answer qtagent_test_support)
target_compile_definitions(tst_example_structured_answer PRIVATE
    "STRUCTURED_ANSWER=\"$<TARGET_FILE:structured_answer>\"")
add_dependencies(tst_example_structured_answer structured_answer)

if(TARGET kept_chat)
    qtagent_add_test(tst_example_kept_chat QtAgentStore)
    target_compile_definitions(tst_example_kept_chat PRIVATE "KEPT_CHAT=\"$<TARGET_FILE:kept_chat>\"")
    add_dependencies(tst_example_kept_chat kept_chat)
endif()

# These end when the example does, which is when its window is closed.
foreach(example IN ITEMS agent_approval chat_window thinking_window)
    qtagent_add_test(tst_example_${example} QtAgentWidgets)
    target_sources(tst_example_${example} PRIVATE "${PROJECT_SOURCE_DIR}/examples/${example}.cpp")
    set_source_files_properties("${PROJECT_SOURCE_DIR}/examples/${example}.cpp" PROPERTIES
        COMPILE_DEFINITIONS main=exampleMain
        SKIP_PRECOMPILE_HEADERS ON)
    set_tests_properties(tst_example_${example} PROPERTIES TIMEOUT 120)
endforeach()
