#include "TestProgramDir.h"
