// Who answers for a room that knows nothing of the others.
#pragma once

namespace machine {

// Device notifications reach services and windows. To be called once all rooms are there.
void ConnectRooms();

} // namespace machine
