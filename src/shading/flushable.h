#pragma once

// Objects that can give up memory when told: caches of device buffers and the
// like, which a viewport asks to flush when memory runs short, and which put
// their contents back when they are needed again.
//
// Every IFlushable registers itself with one process-wide manager when it is
// made, and leaves it when it goes. The viewport drives the manager: it sends
// events (sendEvent) and calls updateManager once per frame. An object goes
// through three states in the manager's list of active items:
//   waiting   -> (event 0 pending at an update) beginFlushMemory, event 1 sent
//   flushing  -> (the object calls notifyFlushingFinished when done)
//   finished  -> (next update) endFlushMemory, out of the active list.
//
// The manager is off when ORVO_VPR_GPU_FLUSHING_ENABLE is set to a number
// below 1; then updates do nothing and events are dropped.
//
// Threads. Events and notifyFlushingFinished may come from any thread. The
// manager calls the virtual operations below from updateManager with its lock
// held, so they must not wait for another thread that talks to the manager.
// Make and destroy flushable objects on the thread that runs updateManager:
// a derived part that is half destroyed cannot answer its virtual calls.

// Events. 0 and 1 are the manager's own; viewport layers give meanings to
// other values.
enum FlushableEvent : int {
    kFlushableEventFlushRequested = 0,  // memory is wanted: waiting objects begin to flush
    kFlushableEventFlushingStarted = 1, // sent by the manager when an object began to flush
};

struct FlushableEventParam {
    // How many frames the event stays pending: entered at the update of frame
    // F, its time has passed after the update of frame F + frames - 1 (or at
    // any update of a frame before F, a new run of frames). 0 counts as 1.
    unsigned frames = 1;
};

class IFlushable {
public:
    IFlushable();
    // A copy is a new object and registers as such.
    IFlushable(const IFlushable&);
    IFlushable& operator=(const IFlushable&) { return *this; }
    virtual ~IFlushable();

    // Whether the object can flush at all. When false at an update, the
    // manager forgets the object for good.
    virtual bool isFlushable() { return false; }
    // Whether the object wants to be among the active items (and so be
    // flushed at the next request).
    virtual bool shouldRegisterItself() { return false; }
    // Whether the manager should look at the object at this update.
    virtual bool shouldUpdate() { return false; }
    // Whether an object that does not want to register needs its memory back.
    virtual bool shouldRestore() { return false; }
    // Starts giving up memory. The object calls notifyFlushingFinished once
    // done, at once or later from any thread.
    virtual void beginFlushMemory() {}
    // Flushing is over and acknowledged.
    virtual void endFlushMemory() {}
    // Takes the memory back.
    virtual void restoreMemory() {}

    // Queues an event for the next update. `param` may be null.
    static void sendEvent(FlushableEvent event, FlushableEventParam* param);
    // Whether the event is queued or pending in the event table.
    static bool checkEvent(FlushableEvent event);
    // Runs the manager for `frame`: enters queued events, updates the
    // candidates, moves active items on, and retires events whose time has
    // passed.
    static void updateManager(unsigned frame);
    // Forgets active items and events and reads the enabling setting again.
    // Objects stay registered.
    static void reset();

protected:
    // The flushing that beginFlushMemory started is done.
    void notifyFlushingFinished();
};
