# One build tree has one set of sanitizers: mixing instrumented and plain code hides faults.
if(OV_SANITIZE)
    add_compile_options(-fsanitize=${OV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${OV_SANITIZE})
endif()
