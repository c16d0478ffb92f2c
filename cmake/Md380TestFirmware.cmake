# The stand-in MD380 vocoder firmware (tests/hw/md380_test_fw.S) assembled for ARM Thumb
# into ${ZL_TEST_FW}; targets that use it depend on md380_test_fw.
find_program(ZL_ARM_AS arm-none-eabi-as REQUIRED)
find_program(ZL_ARM_OBJCOPY arm-none-eabi-objcopy REQUIRED)
set(ZL_TEST_FW ${PROJECT_BINARY_DIR}/md380_test_fw.bin)
if(NOT TARGET md380_test_fw)
    add_custom_command(OUTPUT ${ZL_TEST_FW}
        COMMAND ${ZL_ARM_AS} -o md380_test_fw.o ${PROJECT_SOURCE_DIR}/tests/hw/md380_test_fw.S
        COMMAND ${ZL_ARM_OBJCOPY} -O binary md380_test_fw.o ${ZL_TEST_FW}
        DEPENDS ${PROJECT_SOURCE_DIR}/tests/hw/md380_test_fw.S
        WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
        COMMENT "Assembling the stand-in MD380 vocoder firmware")
    add_custom_target(md380_test_fw DEPENDS ${ZL_TEST_FW})
endif()
