// The callables that the library makes, for hosts to bind to.
#include "support/function.h"
#include "support/function_obj.h"

template class function_obj_base<int>;
template class function_obj<int, int (*)()>;
template class SafePointer<function_obj_base<int>>;
template class function<int>;
