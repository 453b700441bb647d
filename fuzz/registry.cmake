# The registry's parsers: the lock-file pid, and corvanta.ini through the probe.
corvanta_add_fuzzer(fuzz_registry_lockfile registry_lockfile_fuzz.cpp)
target_link_libraries(fuzz_registry_lockfile PRIVATE corvanta_registry)
corvanta_add_fuzzer(fuzz_registry_config registry_config_fuzz.cpp)
target_link_libraries(fuzz_registry_config PRIVATE corvanta_registry)
