// Names as ROS 2 shows them and as it has them in the domain: "/chatter" is topic "rt/chatter",
// "std_msgs/msg/String" is type "std_msgs::msg::dds_::String_". Topics of other makers keep theirs.
#ifndef FERRYADAPTER_DDS_ROS_NAMES_H
#define FERRYADAPTER_DDS_ROS_NAMES_H

#include <string>

namespace ferrydds::ros {

/// "/chatter" for "rt/chatter"; any other name as it is.
std::string streamOf(const std::string &topic);
/// "rt/chatter" for "/chatter"; any other name as it is.
std::string topicOf(const std::string &stream);
/// "std_msgs/msg/String" for "std_msgs::msg::dds_::String_"; any other name as it is.
std::string shownTypeOf(const std::string &typeName);
/// "std_msgs::msg::dds_::String_" for "std_msgs::msg::String", "std_msgs/msg/String" and itself.
std::string announcedTypeOf(const std::string &typeName);
/// Whether a topic is one of ROS.
bool isTopic(const std::string &topic);

} // namespace ferrydds::ros

#endif
