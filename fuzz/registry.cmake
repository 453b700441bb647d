# The registry's parsers: the lock-file pid, corvanta.ini through the probe,
# and the process tables in /proc.
corvanta_add_fuzzer(fuzz_registry_lockfile registry_lockfile_fuzz.cpp)
target_link_libraries(fuzz_registry_lockfile PRIVATE corvanta_registry)
corvanta_add_fuzzer(fuzz_registry_config registry_config_fuzz.cpp)
target_link_libraries(fuzz_registry_config PRIVATE corvanta_registry)
corvanta_add_fuzzer(fuzz_registry_proc_stat registry_proc_stat_fuzz.cpp)
target_link_libraries(fuzz_registry_proc_stat PRIVATE corvanta_registry)
