// Names of types in the notations that people use.
#ifndef QDDSC_SRC_TYPE_NAME_H
#define QDDSC_SRC_TYPE_NAME_H

#include <string>

namespace qddsc {

/// The name as IDL has it: "std_msgs::msg::String" for "std_msgs/msg/String", which ROS 2 shows to
/// people, and for "std_msgs::msg::dds_::String_", which it announces. May throw std::bad_alloc.
std::string plainTypeName(std::string name);

} // namespace qddsc

#endif
