# The JDK that javac on the PATH belongs to, unless JAVA_HOME names another: its JNI headers and VM
# library. CMake's own search knows a list of places only, and a JDK may lie elsewhere.
if(NOT JAVA_HOME AND NOT DEFINED ENV{JAVA_HOME})
    find_program(FERRY_JAVAC javac)
    if(FERRY_JAVAC)
        file(REAL_PATH "${FERRY_JAVAC}" javac_path)
        get_filename_component(javac_dir "${javac_path}" DIRECTORY)
        get_filename_component(JAVA_HOME "${javac_dir}" DIRECTORY)
    endif()
endif()
find_package(JNI REQUIRED COMPONENTS JVM)
