#include <vask_object.h>

namespace {

class consumer : public virtual vask_object {
public:
    consumer() { obj_name = "consumer"; }
    ~consumer() override { vask_p(VASK_P_INFO, "%s\n", "goodbye"); }
};

}  // namespace

int main() {
    const consumer object;
    object.vask_p(VASK_P_NOTICE, "%s\n", vask_object::vask_sprintf("hello %d", 2).c_str());
    return 0;
}
