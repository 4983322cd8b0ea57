# Each example is run, and all that its user sees is compared.
if(NOT QTAGENT_BUILD_EXAMPLES)
    return()
endif()

qtagent_add_test(tst_examples QtAgent qtagent_test_support)
target_compile_definitions(tst_examples PRIVATE "EXAMPLE_DIR=\"$<TARGET_FILE_DIR:stream_reply>\"")
add_dependencies(tst_examples
    json_chain parallel_branches process_tool retrieval review_graph stream_reply structured_answer)

foreach(example IN ITEMS checkpoint_worker custom_model kept_chat structured_answer)
    if(TARGET ${example})
        qtagent_add_test(tst_example_${example} QtAgent qtagent_test_support)
        string(TOUPPER ${example} program)
        qtagent_test_starts(tst_example_${example} ${program} ${example})
    endif()
endforeach()
foreach(example IN ITEMS checkpoint_worker kept_chat)
    if(TARGET tst_example_${example})
        target_link_libraries(tst_example_${example} PRIVATE QtAgentStore)
    endif()
endforeach()

# These end when the example does, which is when its window is closed.
foreach(example IN ITEMS agent_approval awaited_chat chat_window kept_window mcp_window review_workflow slow_tool
        thinking_window)
    if(TARGET ${example})
        get_target_property(example_libraries ${example} LINK_LIBRARIES)
        qtagent_add_test(tst_example_${example} ${example_libraries})
        target_sources(tst_example_${example} PRIVATE "${PROJECT_SOURCE_DIR}/examples/${example}.cpp")
        set_source_files_properties("${PROJECT_SOURCE_DIR}/examples/${example}.cpp" PROPERTIES
            COMPILE_DEFINITIONS main=exampleMain
            SKIP_PRECOMPILE_HEADERS ON)
        set_tests_properties(tst_example_${example} PROPERTIES TIMEOUT 120)
    endif()
endforeach()
if(TARGET tst_example_awaited_chat)
    set_target_properties(tst_example_awaited_chat PROPERTIES CXX_STANDARD 20 DISABLE_PRECOMPILE_HEADERS ON)
endif()
if(TARGET tst_example_mcp_window)
    target_compile_definitions(tst_examples PRIVATE HAS_MCP_WINDOW)
    add_dependencies(tst_examples mcp_window)
    target_link_libraries(tst_example_mcp_window PRIVATE qtagent_test_support)
    qtagent_test_starts(tst_example_mcp_window MCP_SCRIPT_SERVER mcpscriptserver)
endif()
