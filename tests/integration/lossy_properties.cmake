# Runs in ctest after the lossy tests were discovered.
set_tests_properties(${lossy_tests} PROPERTIES
  LABELS "integration;lossy"
  ENVIRONMENT "UPSSIM_CLIENT_RETRIES=2;UPSSIM_DROP_EVERY=2")
