# The assistant
if(NOT TARGET orvaneassistant)
    return()
endif()
qtagent_add_test(tst_assistantwindow orvaneassistant)
qtagent_add_test(tst_chatinput orvaneassistant)
qtagent_add_test(tst_conversationkeeper orvaneassistant)
qtagent_add_test(tst_conversationlistmodel orvaneassistant)
qtagent_add_test(tst_transcriptpresenter orvaneassistant)
