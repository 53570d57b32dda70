#include "station/dictionary/kinds.h"

#include <algorithm>

namespace station {
namespace {

// Names of places that are not the same in both languages.
struct Place {
    std::string_view name, zh, en;
};
constexpr Place kPlaces[] = {
    {"model", "型号代码", "model code"},
    {"arm_frequency", "ARM 主频", "ARM clock"},
    {"memory_frequency", "内存频率", "memory clock"},
    {"memory_size", "内存大小", "memory size"},
    {"flash_size", "FLASH 大小", "flash size"},
    {"board_word", "板号字", "board word"},
    {"memory", "内存字", "memory word"},
    {"second", "第二代码字", "second code word"},
    {"fitting", "配置字", "fitting word"},
    {"storage", "存储字", "storage word"},
    {"cpld_date", "CPLD 日期", "CPLD date"},
    {"channels", "通道数", "channel count"},
    {"sata_layout", "SATA 口数", "SATA layout"},
    {"usb_layout", "USB 口数", "USB layout"},
    {"panel_type", "面板类型", "panel type"},
    {"device_type", "设备类型", "device type"},
    {"esata", "eSATA 口数", "eSATA ports"},
    {"alarm_inputs", "报警输入数", "alarm inputs"},
    {"alarm_outputs", "报警输出数", "alarm outputs"},
    {"minisas", "miniSAS 口数", "miniSAS ports"},
    {"upper", "上", "upper"},
    {"lower", "下", "lower"},
};

const std::vector<Kind> kKinds = {
    // Alarm inputs and outputs.
    {"alarm.input.open", 3, "输入 {1} 断路", "Input {1} open",
     "先换工装 {1} 号线；再查端子 {1} 的焊点和后面的光耦",
     "Try a new fixture wire {1}; then check the joint of terminal {1} and its optocoupler"},
    {"alarm.input.stuck", 3, "输入 {1} 常通", "Input {1} always active",
     "拔下工装 {1} 号线再测；仍常通，查端子 {1} 短路和光耦击穿",
     "Unplug fixture wire {1} and test again; if still active, look for a short at terminal {1} or "
     "in its optocoupler"},
    {"alarm.input.loose", 1, "输入 {1} 时通时断", "Input {1} comes and goes",
     "摇动工装 {1} 号线再测；再查端子 {1} 的虚焊",
     "Move fixture wire {1} and test again; then look for a cold joint at terminal {1}"},
    {"alarm.inputs.shorted", 2, "输入 {1} 和 {2} 短接", "Inputs {1} and {2} shorted",
     "查端子 {1}、{2} 有无弯针、锡桥；再查工装 {1}、{2} 号线是否相碰",
     "Look for a bent pin or a solder bridge between terminals {1} and {2}; then for touching "
     "fixture wires"},
    {"alarm.inputs.swapped", 1, "输入 {1} 和 {2} 接反", "Inputs {1} and {2} swapped",
     "查工装 {1}、{2} 号线是否对调；再查端子座是否装反",
     "Check whether fixture wires {1} and {2} are swapped; then whether the terminal block is "
     "turned"},
    {"alarm.inputs.block", 2, "输入 {1}–{2} 全部断路", "Inputs {1}–{2} all open",
     "查这组端子的工装插头；再查输入 {1}–{2} 的光耦和限流排阻",
     "Check the fixture plug of this block; then the optocoupler and the resistor array of inputs "
     "{1}–{2}"},
    {"alarm.inputs.all", 2, "所有输入都不动作", "No input acts",
     "先查工装插头和公共线；再查板上输入侧供电",
     "Check the fixture plug and its common wire; then the supply of the input side"},
    {"alarm.output.dead", 3, "输出 {1} 不动作", "Output {1} dead",
     "听继电器 {1}：不吸合，查驱动管和线圈；吸合，查端子 {1} 和工装线",
     "Listen to relay {1}: if silent, check its driver and coil; if it clicks, terminal {1} and "
     "the "
     "fixture wire"},
    {"alarm.output.stuck", 2, "输出 {1} 一直接通", "Output {1} always on",
     "断电量端子 {1} 是否导通：触点粘连换继电器 {1}，否则查驱动管",
     "Measure terminal {1} without power: replace relay {1} if its contact is welded, else check "
     "its driver"},
    {"alarm.outputs.swapped", 1, "输出 {1} 和 {2} 接反", "Outputs {1} and {2} swapped",
     "查工装输出 {1}、{2} 的线是否对调；再查端子座是否装反",
     "Check whether fixture wires of outputs {1} and {2} are swapped; then whether the terminal "
     "block is turned"},
    {"alarm.outputs.joined", 2, "输出 {1} 和 {2} 连在一起", "Outputs {1} and {2} joined",
     "查输出端子 {1}、{2} 之间的锡桥；再查两路驱动管",
     "Look for a solder bridge between output terminals {1} and {2}; then check both drivers"},
    {"alarm.outputs.all", 2, "所有输出都不动作", "No output acts",
     "查继电器供电；再查工装输出插头和公共线",
     "Check the supply of the relays; then the fixture's output plug and common wire"},

    // Network ports.
    {"network.copper.no-link", 3, "网口 {1} 电口不通", "LAN {1} copper: no link",
     "换网线和对端端口；再查 RJ45 焊点和网络变压器",
     "Try another cable and switch port; then check the joints of the RJ45 and its magnetics"},
    {"network.fibre.no-link", 3, "网口 {1} 光口不通", "LAN {1} fibre: no link",
     "光模块插到底、光纤收发对调；换模块；再查 SFP 座",
     "Push the transceiver home, swap its fibres; replace the module; then check the SFP cage"},
    {"network.copper.slow", 3, "网口 {1} 电口速率不对", "LAN {1} copper: wrong speed",
     "换网线（少一对线只有 100M）；再查变压器 C、D 两对的焊点",
     "Try another cable (100M = a pair is open); then check the joints of pairs C and D at the "
     "magnetics"},
    {"network.fibre.slow", 2, "网口 {1} 光口速率不对", "LAN {1} fibre: wrong speed",
     "换成 1000M 光模块；再查对端端口的设置",
     "Use a 1000M transceiver; then check the setting of the switch port"},
    {"network.copper.half", 2, "网口 {1} 电口半双工", "LAN {1} copper: half duplex",
     "查对端端口是否自协商；换网线；再查 PHY 配置电阻",
     "Check that the switch port negotiates; try another cable; then the strap resistors of the "
     "PHY"},
    {"network.copper.drops", 1, "网口 {1} 电口时通时断", "LAN {1} copper: link drops",
     "换网线、压紧插头；再查 RJ45 和变压器的虚焊",
     "Try another cable, press its plug home; then look for a cold joint at the RJ45 and its "
     "magnetics"},
    {"network.fibre.half", 2, "网口 {1} 光口半双工", "LAN {1} fibre: half duplex",
     "查对端端口设置；再查 PHY 配置电阻",
     "Check the setting of the switch port; then the strap resistors of the PHY"},
    {"network.fibre.drops", 1, "网口 {1} 光口时通时断", "LAN {1} fibre: link drops",
     "光模块插到底、光纤头擦净；换模块；再查 SFP 座",
     "Push the transceiver home, clean the fibre; replace the module; then check the SFP cage"},
    {"network.port.no-link", 2, "网口 {1} 电口和光口都不通", "LAN {1}: no link on either medium",
     "查 PHY {1} 的供电、时钟和复位", "Check supply, clock and reset of PHY {1}"},
    {"network.port.absent", 2, "网口 {1} 没有网卡", "LAN {1}: no interface",
     "查 PHY {1} 的 MDIO 和焊接；再查驱动是否加载",
     "Check MDIO and soldering of PHY {1}; then whether its driver is loaded"},
    {"network.port.driver", 1, "网口 {1} 读不到状态", "LAN {1}: status cannot be read",
     "查 PHY {1} 的 MDIO；再查驱动版本", "Check MDIO of PHY {1}; then the version of the driver"},
    {"network.copper.all", 2, "所有电口都不通", "No copper port has a link",
     "先看交换机是否上电；再查电口/光口切换线路",
     "See that the switch has power; then check the copper/fibre selector"},
    {"network.fibre.all", 2, "所有光口都不通", "No fibre port has a link",
     "先看光交换机是否上电；再查电口/光口切换线路",
     "See that the fibre switch has power; then check the copper/fibre selector"},

    // Clock.
    {"rtc.absent", 2, "时钟芯片读不到", "Clock chip not found", "查时钟芯片的 I2C、供电和焊接",
     "Check I2C, supply and soldering of the clock chip"},
    {"rtc.drops", 1, "时钟芯片时有时无", "Clock chip comes and goes", "查时钟芯片 I2C 的上拉和虚焊",
     "Check the pull-ups of its I2C and its joints"},
    {"rtc.stopped", 2, "时钟不走", "Clock stands still",
     "查 32.768 kHz 晶振和两侧电容；再换时钟芯片",
     "Check the 32.768 kHz crystal and its capacitors; then replace the clock chip"},
    {"rtc.wrong", 3, "时钟不准", "Clock is set wrong",
     "重新校时，断电十分钟再测；又偏，换电池和晶振",
     "Set the clock, wait ten minutes without power, test again; if off again, replace battery and "
     "crystal"},
    {"rtc.battery", 3, "后备电池没电", "Backup battery dead",
     "量电池电压，低于 2.5 V 就换；校时后断电再测；再查电池座和二极管",
     "Measure the battery, replace it below 2.5 V; set the clock, test again after a power-off; "
     "then check the holder and its diode"},
    {"rtc.fast", 1, "时钟走得快", "Clock runs fast", "查 32.768 kHz 晶振的型号和负载电容",
     "Check type and load capacitors of the 32.768 kHz crystal"},
    {"rtc.slow", 1, "时钟走得慢", "Clock runs slow", "查 32.768 kHz 晶振的型号和负载电容",
     "Check type and load capacitors of the 32.768 kHz crystal"},
    {"rtc.flag", 0, "时钟驱动带夏令时标志", "Clock driver sets the daylight-saving flag",
     "查时钟驱动的版本", "Check the version of the clock driver"},

    // USB.
    {"usb.disk.missing", 3, "少一个 U 盘（{1}）", "A USB stick is missing ({1})",
     "看四个口的 U 盘是否插好，换 U 盘；再查该口的供电和差分线",
     "See that every stick is plugged in, try another; then check supply and data lines of that "
     "port"},
    {"usb.disk.loose", 2, "U 盘 {1} 中途断开或插晚了", "USB stick {1} comes and goes",
     "U 盘插到底、测试中不要动，复测；换 U 盘；再查该口的虚焊",
     "Push the stick home, leave it alone during the test, test again; try another; then look for "
     "a cold joint at that port"},
    {"usb.disk.unmountable", 2, "U 盘 {1} 挂载不上", "USB stick {1} cannot be mounted",
     "在电脑上重新格式化 U 盘，或换一个", "Format the stick on a computer, or replace it"},
    {"usb.disk.full", 2, "U 盘 {1} 没有空间", "USB stick {1} is full",
     "删掉 U 盘上的文件，或换一个", "Delete the files on the stick, or replace it"},
    {"usb.disk.shell", 0, "U 盘 {1} 只有用命令才挂得上", "USB stick {1} mounts by the command only",
     "重新格式化 U 盘", "Format the stick again"},
    {"usb.slow", 1, "U 盘挂载太慢", "USB sticks mount slowly",
     "逐个换 U 盘；再查 USB 控制器和内核日志",
     "Replace the sticks one by one; then check the USB controller and the kernel log"},
    {"usb.all", 2, "所有 U 盘都没有", "No USB stick at all",
     "看 U 盘是否插了；再查 USB 5 V 供电和控制器",
     "See whether the sticks are plugged in; then check the 5 V supply and the controller"},
    {"usb.rear.dead", 3, "后面板{1}面的 USB 口不通", "Rear USB port, {1}: dead",
     "换一个 U 盘；再查该口的 5 V、保险丝和差分线",
     "Try another stick; then check 5 V, fuse and data lines of that port"},
    {"usb.rear.slow", 2, "后面板{1}面的 USB 口不到 3.0", "Rear USB port, {1}: no USB 3.0",
     "看插的是不是 3.0 U 盘；再查该口的 SuperSpeed 差分线和焊点",
     "See that the stick is a 3.0 one; then check the SuperSpeed pairs and joints of that port"},
    {"usb.rear.unchanged", 3, "第二次没有换成 2.0 U 盘", "The 2.0 stick was not plugged in",
     "复测：听到提示后十秒内把 2.0 U 盘插到上面的口",
     "Test again: plug the 2.0 stick into the upper port within ten seconds of the prompt"},
    {"usb.extra", 2, "多插了 USB 设备（鼠标）", "One USB device too many (a mouse)",
     "拔掉鼠标和多余的设备再测", "Unplug the mouse and any other device, and test again"},
    {"usb.leftover", 0, "/mnt 下有上次留下的目录", "A directory is left in /mnt", "删掉该目录",
     "Remove the directory"},

    // Disks.
    {"sata.disk.absent", 3, "硬盘 {1} 没有", "Disk {1} missing",
     "看数据线是否插对口、插到底，电源线是否插上；换线换盘；再查该口的焊点",
     "See that the data cable is in the right port and home, and the power cable in; try another "
     "cable and disk; then check the joints of that port"},
    {"sata.disk.mute", 2, "硬盘 {1} 不应答", "Disk {1} does not answer",
     "换硬盘；换数据线；再查该口的差分线",
     "Replace the disk; try another cable; then check the data lines of that port"},
    {"sata.disk.slow", 1, "硬盘 {1} 应答太慢", "Disk {1} is slow to answer",
     "听硬盘有无异响，换硬盘；再换数据线", "Listen to the disk, replace it; try another cable"},
    {"sata.disk.drops", 1, "硬盘 {1} 中途断开", "Disk {1} drops out",
     "压紧数据线和电源线的插头；换线换盘；再查该口的虚焊",
     "Press the plugs of data and power cable home; try another cable and disk; then look for a "
     "cold joint at that port"},
    {"sata.disk.sizeless", 1, "硬盘 {1} 读不到容量", "Disk {1} has no size", "换硬盘；换数据线",
     "Replace the disk; try another cable"},
    {"sata.disk.size-call", 0, "硬盘 {1} 只应答一种容量查询",
     "Disk {1} answers one size query only", "查内核版本", "Check the version of the kernel"},
    {"sata.disks.doubled", 2, "硬盘 {1} 和 {2} 序列号相同",
     "Disks {1} and {2} have one serial number",
     "查两口是否连到同一块硬盘（桥片端口接错）；再换硬盘",
     "Check whether both ports lead to one disk (bridge ports); then replace a disk"},
    {"sata.disks.swapped", 1, "硬盘 {1} 和 {2} 的线插反", "Cables of disks {1} and {2} swapped",
     "对照口号重插两根数据线", "Plug both data cables again by the port numbers"},
    {"sata.disk.texts", 1, "硬盘 {1} 的型号、序列号是乱的", "Texts of disk {1} are garbage",
     "换数据线；换硬盘", "Try another cable; replace the disk"},
    {"sata.disk.other", 2, "硬盘 {1} 不是工装的硬盘", "Disk {1} is not the fixture's",
     "看硬盘标签，换成工装规定的型号和容量",
     "Read the label of the disk; use the model and size that the fixture asks for"},
    {"sata.bridge.down", 2, "桥片 {1} 下的硬盘全没有", "All disks behind bridge {1} missing",
     "查桥片 {1} 的供电、时钟、复位和上行线；再查硬盘电源",
     "Check supply, clock, reset and uplink of bridge {1}; then the power of the disks"},
    {"sata.all", 2, "所有内部硬盘都没有", "No internal disk at all",
     "先查硬盘电源；再查 SATA 控制器和桥片",
     "Check the power of the disks; then the SATA controller and the bridge"},

    // RS-485.
    {"rs485.no-echo", 3, "RS-485 没有回环", "RS-485: nothing comes back",
     "先看工装的 485 插头、A/B 线；再查收发器和它的供电",
     "Check the fixture's RS-485 plug and wires A and B; then the transceiver and its supply"},
    {"rs485.blocked", 1, "RS-485 串口发不出去", "RS-485: the port sends nothing",
     "查串口的流控和时钟；再查收发器方向控制",
     "Check clock and flow control of the UART; then the direction line of the transceiver"},
    {"rs485.lost", 2, "RS-485 丢字节", "RS-485 loses bytes", "换收发器；再查方向控制线和终端电阻",
     "Replace the transceiver; then check its direction line and the terminating resistor"},
    {"rs485.stray", 1, "RS-485 多出字节", "RS-485 gets stray bytes",
     "查 A/B 偏置电阻和工装线屏蔽；再换收发器",
     "Check the bias resistors of A and B and the fixture's shield; then replace the transceiver"},
    {"rs485.corrupt", 2, "RS-485 有错字节", "RS-485 bytes come back wrong",
     "查终端电阻、A/B 焊点和工装线屏蔽；再换收发器",
     "Check the terminating resistor, the joints of A and B and the fixture's shield; then replace "
     "the transceiver"},
    {"rs485.late", 1, "RS-485 回环太迟", "RS-485 answers too late", "换工装的回环头；再查串口中断",
     "Replace the fixture's loopback; then check the UART's interrupt"},
    {"rs485.drops", 1, "RS-485 中途断开", "RS-485 breaks off",
     "压紧工装的 485 插头；再查串口驱动和收发器的虚焊",
     "Press the fixture's RS-485 plug home; then check the UART's driver and the joints of the "
     "transceiver"},
    {"rs485.hung-up", 1, "RS-485 串口挂断", "RS-485 port is hung up",
     "查串口驱动和内核日志；重启主板再测",
     "Check the UART's driver and the kernel log; restart the board and test again"},
    {"rs485.mode", 0, "RS-485 串口参数被改过", "RS-485 port was left in another mode",
     "查有没有别的程序占用该串口", "Look for another program that uses this port"},
    {"rs485.absent", 2, "没有 RS-485 串口", "No RS-485 port", "查串口驱动是否加载；再查启动参数",
     "Check that the UART's driver is loaded; then the boot parameters"},

    // Front panel and buzzer.
    {"panel.unplugged", 3, "前面板没有反应", "Front panel dead",
     "查面板排线两端；换面板；再查板上面板座的 5 V",
     "Check both ends of the panel cable; try another panel; then 5 V at the panel connector"},
    {"panel.blocked", 3, "面板灯不亮", "Panel LEDs stay dark",
     "全不亮，查面板排线的发送线；个别不亮，换该灯或面板",
     "All dark: check the transmit line of the panel cable; a few: replace the LED or the panel"},
    {"panel.dies", 2, "面板中途失去反应", "Front panel dies during the test",
     "压紧面板排线两端再测；换面板；再查面板座的 5 V",
     "Press both ends of the panel cable home, test again; try another panel; then check 5 V at "
     "its connector"},
    {"panel.hung-up", 1, "面板串口挂断", "Panel port is hung up",
     "查串口驱动和内核日志；重启主板再测",
     "Check the UART's driver and the kernel log; restart the board and test again"},
    {"panel.mode", 0, "面板串口参数被改过", "Panel port was left in another mode",
     "查有没有别的程序占用该串口", "Look for another program that uses this port"},
    {"panel.absent", 2, "没有面板串口", "No panel port", "查串口驱动是否加载；再查 CPU 串口焊接",
     "Check that the UART's driver is loaded; then the soldering of the UART"},
    {"panel.key.dead", 3, "{1} 键没反应", "Key {1} does not act",
     "重按 {1} 键；查该键的焊点；换面板",
     "Press {1} again; check the joints of that key; replace the panel"},
    {"panel.key.unknown", 2, "{1} 键发出未知键码", "Key {1} sends an unknown code",
     "看面板型号是否配这块板；换面板", "Check that the panel fits this board; replace the panel"},
    {"panel.keys.dead", 2, "所有键都没反应，灯正常", "No key acts, LEDs work",
     "重按一遍；查面板排线的接收线；换面板",
     "Press the keys again; check the receive line of the panel cable; replace the panel"},
    {"panel.cut", 1, "面板发来的字节不全", "Panel frames are cut off",
     "查面板排线接触和接地；换面板",
     "Check contact and ground of the panel cable; replace the panel"},
    {"panel.noise", 1, "面板线上有杂码", "Noise on the panel line", "查面板排线接地和屏蔽；换面板",
     "Check ground and shield of the panel cable; replace the panel"},
    {"buzzer.silent", 3, "蜂鸣器不响", "Buzzer silent",
     "查蜂鸣器焊点和极性；查驱动三极管；换蜂鸣器",
     "Check joints and polarity of the buzzer; then its driver transistor; replace the buzzer"},
    {"buzzer.endless", 1, "蜂鸣器一直响", "Buzzer never stops", "查蜂鸣器驱动三极管是否击穿",
     "Check whether the buzzer's driver transistor is shorted"},

    // Description, boot parameters, control chip.
    {"board.description", 2, "读不到板信息", "Board description cannot be read",
     "重新烧写板信息；再查存放它的 EEPROM",
     "Write the board description again; then check its EEPROM"},
    {"board.field", 2, "板信息写错：{1}", "Board description wrong: {1}",
     "核对型号标签，重新烧写板信息", "Compare with the label; write the board description again"},
    {"board.boot-type", 2, "启动参数说“无报警、无 485”", "Boot parameters: no alarm I/O, no RS-485",
     "核对型号，重新写启动参数的设备类型",
     "Compare with the label; write the device type of the boot parameters again"},
    {"board.line-high", 1, "控制线 {1} 被外部拉高", "Control line {1} is driven high",
     "查控制芯片该脚有无短路到电源",
     "Look for a short to the supply at that pin of the control chip"},
    {"board.control", 2, "控制芯片打不开", "Control chip not found",
     "查控制芯片（CPLD）供电、时钟和烧写；再查驱动",
     "Check supply, clock and programming of the CPLD; then its driver"},
    {"board.root", 1, "q7 不是超级用户", "q7 is not the super-user", "用 root 登录再测",
     "Log in as root and test again"},
    {"board.watchdog", 1, "看门狗不复位", "Watchdog does not restart the board",
     "查 CPLD 的看门狗输出到 CPU 复位脚",
     "Check the watchdog output of the CPLD up to the CPU's reset pin"},
    {"board.kernel", 1, "内核版本不对", "Another kernel", "重新烧写内核",
     "Install the kernel again"},
    {"board.time-zone", 0, "时区设错", "Wrong time zone", "核对板上的时区设置",
     "Check the board's setting of the time zone"},
    {"board.file", 1, "板上缺文件 {1}", "File {1} is missing on the board", "重新安装软件包",
     "Install the software again"},

    // Port multipliers.
    {"pmp.absent", 2, "桥片 {1} 不应答", "Bridge {1} does not answer",
     "查桥片 {1} 的供电、时钟、复位和 SATA 上行线",
     "Check supply, clock, reset and uplink of bridge {1}"},
    {"pmp.old", 3, "桥片 {1} 的固件是旧的", "Bridge {1} had an older firmware",
     "已更新；再测一次确认", "It was updated; test again to confirm"},
    {"pmp.blank", 2, "桥片 {1} 的 FLASH 是空的", "Flash of bridge {1} was blank",
     "已写入；再测一次确认", "It was programmed; test again to confirm"},
    {"pmp.ignores", 2, "桥片 {1} 的 FLASH 写不进", "Flash of bridge {1} ignores erase and program",
     "查 FLASH 的写保护脚和焊接；换 FLASH",
     "Check write-protect pin and joints of the flash; replace the flash"},
    {"pmp.programs", 2, "桥片 {1} 的 FLASH 不能编程", "Flash of bridge {1} does not program",
     "换桥片 {1} 的 FLASH", "Replace the flash of bridge {1}"},
    {"pmp.erases", 2, "桥片 {1} 的 FLASH 不能擦除", "Flash of bridge {1} does not erase",
     "换桥片 {1} 的 FLASH", "Replace the flash of bridge {1}"},
    {"pmp.cells", 2, "桥片 {1} 的 FLASH 有坏单元", "Flash of bridge {1} has bad cells",
     "换桥片 {1} 的 FLASH", "Replace the flash of bridge {1}"},
    {"pmp.slow", 1, "桥片 {1} 的 FLASH 太慢", "Flash of bridge {1} is slow", "换桥片 {1} 的 FLASH",
     "Replace the flash of bridge {1}"},
    {"pmp.protected", 2, "桥片 {1} 的 FLASH 被保护", "Flash of bridge {1} is protected",
     "查 FLASH 的写保护脚；用编程器解除保护",
     "Check the write-protect pin; remove the protection with a programmer"},
    {"pmp.variant", 1, "桥片 {1} 的型号不对", "Bridge {1} is another variant",
     "核对桥片丝印和固件文件", "Compare the marking of the bridge with the firmware file"},
    {"pmp.file", 2, "缺少或写错固件文件", "Firmware file missing or wrong",
     "重新拷贝 /dav0 下的固件文件", "Copy the firmware file to /dav0 again"},

    // What a driver or the kernel refuses.
    {"call.fails", 0, "系统调用失败：{1}", "A system call fails: {1}",
     "复测；再现，查该设备的驱动、内核日志和芯片焊接",
     "Test again; if it comes back, check that device's driver, the kernel log and the joints of "
     "its "
     "chip"},
};

std::string_view place_text(std::string_view place, bool chinese) {
    const auto* known = std::find_if(std::begin(kPlaces), std::end(kPlaces),
                                     [&](const Place& row) { return row.name == place; });
    if (known == std::end(kPlaces)) return place;
    return chinese ? known->zh : known->en;
}

std::string filled(std::string_view text, const std::vector<std::string>& places, bool chinese) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::size_t digit =
            text[at] == '{' ? static_cast<std::size_t>(text[at + 1] - '1') : 9;
        if (digit < places.size() && text.substr(at + 2, 1) == "}") {
            result += place_text(places[digit], chinese);
            at += 2;
        } else {
            result += text[at];
        }
    }
    return result;
}

}  // namespace

const std::vector<Kind>& kinds() { return kKinds; }

const Kind* find_kind(std::string_view name) {
    const auto found = std::find_if(kKinds.begin(), kKinds.end(),
                                    [&](const Kind& kind) { return kind.name == name; });
    return found == kKinds.end() ? nullptr : &*found;
}

Words title_of(const Kind& kind, const std::vector<std::string>& places) {
    return {filled(kind.title_zh, places, true), filled(kind.title_en, places, false)};
}

Words check_of(const Kind& kind, const std::vector<std::string>& places) {
    return {filled(kind.check_zh, places, true), filled(kind.check_en, places, false)};
}

}  // namespace station
