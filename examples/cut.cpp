// The library guide's example (docs/LIBRARY.md, kept equal by tests/docs):
// seconds 1 to 5 of a file, rendered to an MP3.
//   wavoryx_cut IN OUT.mp3
#include <stdlib.h>
#include <unistd.h>
#include <wavoryx/Wavoryx.h>
#include <future>
#include <string>

static std::promise<int> gEnd;  // the render's ending event: done, failed, cancelled or stopped
static void onEvent(int code, int, int, char*, void*) {
    if (code == WV_EVENT_RENDER_DONE || code == WV_EVENT_RENDER_FAILED ||
        code == WV_EVENT_RENDER_CANCELLED || code == WV_EVENT_RENDER_STOPPED)
        gEnd.set_value(code);
}

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    char dir[] = "/tmp/wavoryx-XXXXXX";     // a private folder for the engine's PCM files:
    if (mkdtemp(dir) == nullptr) return 1;  // a shared one would let others plant files there
    int end;
    {
        Wavoryx engine;
        engine.setWorkingDir((std::string(dir) + "/").c_str());
        engine.setCallback(onEvent);
        engine.startThreadLoop(0);            // events arrive on an engine thread
        int song = engine.loadFile(argv[1]);  // returns at once; loads in the background
        int list = engine.newClipList();
        engine.addClipMs(list, song, 1000, 5000);  // fine while the song still loads
        engine.setOutputPara(list, argv[2], ENCODE_MP3);
        engine.process(list);           // a song that fails to load ends it: RENDER_FAILED
        end = gEnd.get_future().get();  // waits for the ending event
        engine.removePcm(list);         // the song's PCM file goes with its last holder
        engine.removePcm(song);
        engine.stopThreadLoop();
    }
    rmdir(dir);
    return end == WV_EVENT_RENDER_DONE ? 0 : 1;
}
