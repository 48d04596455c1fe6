#include <vantrel.h>
