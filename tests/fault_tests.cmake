# Faults of plug-ins, clients and the machine.
zelk_test(stress ISOLATED BLOCKS ${TEST_BLOCKS})
