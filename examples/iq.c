#include <libvnk.h>
#include <math.h>
#include <stdio.h>

int main(int argc, char** argv) {
    uint32_t device, stream;
    vnkAddDeviceAddress(argc > 1 ? argv[1] : "127.0.0.1");
    int32_t status = vnkOpenDevice(0, &device);
    if (status != 0) {
        fprintf(stderr, "cannot open it: %s\n", vnkGetTextForStatus(status));
        return 1;
    }
    vnkCreateIQStream(&stream, 114.85e6f, 100e3f, -30.0f);  // centre, bandwidth in Hz; level in dBm
    status = vnkAttachStreamToDevice(stream, device);

    for (int frames = 0; status >= 0 && frames < 10;) {
        vnkIQRecord* iq = NULL;
        status = vnkGetNextIQ(stream, &iq, 1000);
        if (status != 0)
            continue;  // above 0: nothing yet; below: an error, which ends the loop
        double power = 0;
        for (uint32_t i = 0; i < 2 * iq->sampleCount; ++i)
            power += (double)iq->samples[i] * (double)iq->samples[i];
        printf("frame %u: %u samples at %.0f S/s, %.1f dBm\n", iq->sequence, iq->sampleCount,
               (double)iq->sampleRateHz, 10 * log10(power / iq->sampleCount));
        vnkFreeIQ(&iq);
        ++frames;
    }
    vnkClose(&stream);
    vnkClose(&device);
    return status < 0;
}
