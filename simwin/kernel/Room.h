// A room of the machine: a subject of its own with the state that it keeps from the machine's construction to its end.
// The machine owns its rooms and decides their order (machine/Machine.cpp). Operations are plain functions, as those of
// Windows are, so each room's code finds its state through one pointer of its own, which is null without the room.
#pragma once

#include <memory>

namespace machine {

class Room {
public:
    Room() = default;
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;
    virtual ~Room() = default;
};
using RoomPtr = std::unique_ptr<Room>;
using RoomMaker = RoomPtr (*)(); // each room's header declares its own: MakeRegistry, MakeFiles, ...

template<typename State>
class RoomOf final : public Room {
public:
    // current: the room's pointer to its state. atEnd: runs while the state is still there.
    RoomOf(State*& current, void (*atEnd)()) : m_state(std::make_unique<State>()), m_current(current), m_atEnd(atEnd) {
        m_current = m_state.get();
    }
    ~RoomOf() override {
        if (m_atEnd) {
            m_atEnd();
        }
        m_state.reset(); // the pointer stays meanwhile: what is destroyed may still ask for the rest
        m_current = nullptr;
    }

private:
    std::unique_ptr<State> m_state;
    State*& m_current;
    void (*m_atEnd)();
};

template<typename State>
RoomPtr MakeRoom(State*& current, void (*atEnd)() = nullptr) {
    return std::make_unique<RoomOf<State>>(current, atEnd);
}

} // namespace machine
