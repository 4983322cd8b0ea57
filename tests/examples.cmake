# Each example is run, and all that its user sees is compared.
if(NOT QTAGENT_BUILD_EXAMPLES)
    return()
endif()

qtagent_add_test(tst_examples QtAgent qtagent_test_support)
target_compile_definitions(tst_examples PRIVATE "EXAMPLE_DIR=\"$<TARGET_FILE_DIR:stream_reply>\"")
add_dependencies(tst_examples json_chain retrieval review_graph stream_reply)
# Runs the console program <example> with ARGUMENTS and INPUT. It has to end with STATUS, 0 by default, and to
# print OUTPUT and ERROR, nothing by default.
function(qtagent_test_example name example)
    cmake_parse_arguments(expected "" "INPUT;STATUS;OUTPUT;ERROR" "ARGUMENTS" ${ARGN})
    if(NOT DEFINED expected_STATUS)
        set(expected_STATUS 0)
    endif()
    set(folder "${CMAKE_CURRENT_BINARY_DIR}/examples/${name}")
    file(WRITE "${folder}/input" "${expected_INPUT}")
    file(WRITE "${folder}/output" "${expected_OUTPUT}")
    file(WRITE "${folder}/error" "${expected_ERROR}")
    add_test(NAME example_${name}
        COMMAND "${CMAKE_COMMAND}" -D "PROGRAM=$<TARGET_FILE:${example}>" -D "FOLDER=${folder}"
            -D STATUS=${expected_STATUS} -P "${CMAKE_CURRENT_SOURCE_DIR}/runexample.cmake"
            -- ${expected_ARGUMENTS})
    set_tests_properties(example_${name} PROPERTIES ENVIRONMENT "${test_environment}")
endfunction()

set(mock_answer "Orvane 模拟模型正在本地运行。本回复无需网络请求，会以流式方式输出，因此可以离线测试演示程序。 \n")
set(three_drafts "draft {\"drafts\":1}\ndraft {\"drafts\":2}\ndraft {\"drafts\":3}\n")

qtagent_test_example(stream_reply_prints_the_answer stream_reply OUTPUT "${mock_answer}")

qtagent_test_example(parallel_branches_prints_the_opinions_and_the_summary parallel_branches
    OUTPUT "opinions/cost: ${mock_answer}opinions/safety: ${mock_answer}opinions/time: ${mock_answer}summary/summary: ${mock_answer}")

qtagent_test_example(json_chain_prints_fields json_chain
    ARGUMENTS valves question answer
    OUTPUT "question: Explain valves as a JSON object with the fields question, answer.
answer: Ask a real model.
")
qtagent_test_example(json_chain_misses_a_field json_chain
    ARGUMENTS valves price
    STATUS 1
    ERROR "Missing required field: price\n")

set(log "The pump runs.\nA valve -e sticks.\nThe valve opens.\n")
qtagent_test_example(process_tool_finds_lines process_tool
    ARGUMENTS input valve
    INPUT "${log}"
    OUTPUT "2:A valve -e sticks.\n3:The valve opens.\n")
qtagent_test_example(process_tool_takes_options_for_texts process_tool
    ARGUMENTS input -e
    INPUT "${log}"
    OUTPUT "2:A valve -e sticks.\n")
qtagent_test_example(process_tool_reports_a_failure process_tool
    ARGUMENTS input tank
    INPUT "${log}"
    STATUS 1
    ERROR "Program ended with code 1.")

qtagent_test_example(retrieval_puts_the_best_document_first retrieval
    ARGUMENTS "When does the pump stop?"
    OUTPUT "- The pump runs at night. It has to stop at a pressure of 8 bar.
- The valve opens at a pressure of 6 bar.

${mock_answer}")
qtagent_test_example(retrieval_depends_on_the_question retrieval
    ARGUMENTS "How many litres?"
    OUTPUT "- The tank holds 400 litres.
- The valve opens at a pressure of 6 bar.

${mock_answer}")

qtagent_test_example(review_graph_resumes_once_approved review_graph
    INPUT "y\n"
    OUTPUT "${three_drafts}Go on with send? [y/n] send {\"approved\":true,\"drafts\":3,\"sent\":true}\n")
qtagent_test_example(review_graph_ends_where_denied review_graph
    ARGUMENTS 3
    INPUT "n\n"
    OUTPUT "${three_drafts}Go on with send? [y/n] ")
qtagent_test_example(review_graph_takes_no_answer_for_a_denial review_graph
    ARGUMENTS 1
    OUTPUT "draft {\"drafts\":1}\nGo on with send? [y/n] ")
set(all_drafts)
foreach(draft RANGE 1 32)
    string(APPEND all_drafts "draft {\"drafts\":${draft}}\n")
endforeach()
qtagent_test_example(review_graph_exceeds_its_steps review_graph
    ARGUMENTS 33
    STATUS 1
    OUTPUT "${all_drafts}"
    ERROR "Graph exceeded max steps: 32\n")

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

if(TARGET mcp_window AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    qtagent_test_example(mcp_window_needs_a_server mcp_window
        STATUS 1
        ERROR "Usage: mcp_window ADDRESS, or mcp_window PROGRAM ARGUMENTS\n")
    qtagent_add_test(tst_example_mcp_window QtAgentMcp QtAgentWidgets)
    target_sources(tst_example_mcp_window PRIVATE "${PROJECT_SOURCE_DIR}/examples/mcp_window.cpp")
    set_source_files_properties("${PROJECT_SOURCE_DIR}/examples/mcp_window.cpp" PROPERTIES
        COMPILE_DEFINITIONS main=exampleMain)
    target_compile_definitions(tst_example_mcp_window PRIVATE
        "MCP_SCRIPT_SERVER=\"$<TARGET_FILE:mcpscriptserver>\"")
    add_dependencies(tst_example_mcp_window mcpscriptserver)
endif()

# These end when the example does, which is when its window is closed.
foreach(example IN ITEMS agent_approval chat_window thinking_window)
foreach(example IN ITEMS agent_approval chat_window slow_tool)
if(TARGET review_workflow)
    set(examples_with_a_store review_workflow)
endif()
foreach(example IN ITEMS agent_approval chat_window LISTS examples_with_a_store)
    qtagent_add_test(tst_example_${example} QtAgentWidgets)
    if(example IN_LIST examples_with_a_store)
        target_link_libraries(tst_example_${example} PRIVATE QtAgentStore)
    endif()
    target_sources(tst_example_${example} PRIVATE "${PROJECT_SOURCE_DIR}/examples/${example}.cpp")
    set_source_files_properties("${PROJECT_SOURCE_DIR}/examples/${example}.cpp" PROPERTIES
        COMPILE_DEFINITIONS main=exampleMain
        SKIP_PRECOMPILE_HEADERS ON)
    set_tests_properties(tst_example_${example} PROPERTIES TIMEOUT 120)
endforeach()
