extern "C" int zelkPlaceholder() { return 0; }
