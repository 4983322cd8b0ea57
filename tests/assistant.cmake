# The assistant
if(NOT TARGET orvaneassistant)
    return()
endif()
qtagent_add_tests("orvaneassistant;QtAgentTesting"
    assistantkill assistantmemory assistantsettings assistantwindow assistantwindow_editing
    assistantwindow_tools assistantwindow_unsent chatinput conversationfiles conversationkeeper
    conversationlistmodel failureadvice folder messageactions noticebar profilekeys profilesfile textzoom toolset
    transcriptpresenter)
qtagent_add_tests("orvaneassistant;qtagent_test_support"
    assistantjourney assistantwindow_service profilesdialog toolsdialog)
qtagent_add_test(tst_assistanttour Qt${QTAGENT_QT_MAJOR}::Gui)
qtagent_test_starts(tst_assistanttour ORVANE_ASSISTANT orvane-assistant)
qtagent_add_test_program(chattingassistant support/chattingassistant.cpp orvaneassistant)
qtagent_test_starts(tst_assistantkill CHATTING_ASSISTANT chattingassistant)
qtagent_test_starts(tst_assistantwindow_tools MCP_SCRIPT_SERVER mcpscriptserver)
qtagent_test_starts(tst_toolsdialog MCP_SCRIPT_SERVER mcpscriptserver)
qtagent_test_starts(tst_toolset MCP_SCRIPT_SERVER mcpscriptserver)

find_package(Qt${QTAGENT_QT_MAJOR} QUIET COMPONENTS LinguistTools)
if(TARGET assistanttranslations AND TARGET Qt${QTAGENT_QT_MAJOR}::lupdate)
    qtagent_add_test(tst_translations orvaneassistant QtAgentTesting)
    target_compile_definitions(tst_translations PRIVATE
        "LUPDATE=\"$<TARGET_FILE:Qt${QTAGENT_QT_MAJOR}::lupdate>\""
        "SOURCE_DIR=\"${PROJECT_SOURCE_DIR}\""
        "TRANSLATION=\"${PROJECT_SOURCE_DIR}/assistant/translations/orvane-assistant_en.ts\""
        "TRANSLATIONS_DIR=\"${PROJECT_BINARY_DIR}/assistant/translations\"")
    add_dependencies(tst_translations assistanttranslations)
    foreach(test tst_assistantenglish tst_assistantlook) # beside the translation, as the program is
        qtagent_add_test(${test} orvaneassistant QtAgentTesting)
        set_target_properties(${test} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/assistant")
        add_dependencies(${test} assistanttranslations)
    endforeach()
    target_compile_definitions(tst_assistantenglish PRIVATE "LIBRARY_DIR=\"${PROJECT_SOURCE_DIR}/qtagent\"")
endif()
