extern "C" __attribute__((visibility("default"))) int korvaneTestAnswer() {
  return 42;
}
