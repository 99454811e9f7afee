#include "driver/driver.h"

int main(int argc, char** argv) { return RunMain(argc, argv); }
