# Parser, editor and writer of the configuration library, from arbitrary file bytes.
corvanta_add_fuzzer(fuzz_cfg_parse cfg_parse_fuzz.cpp)
target_link_libraries(fuzz_cfg_parse PRIVATE corvanta_cfg)
